// Random numbers that depend on what they are for and on nothing else.
#include "simulate/random.h"

#include <array>
#include <cmath>

namespace quarro::simulate {
namespace {

// The step and the finalizer of SplitMix64 (Steele, Lea and Flood 2014).
constexpr std::uint64_t kStep = 0x9E3779B97F4A7C15U;

std::uint64_t Mixed(std::uint64_t value) {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31U);
}

using Coefficients = std::array<double, 8>;

double Polynomial(const Coefficients& c, double x) {
  double value = c[7];
  for (int i = 6; i >= 0; --i) value = value * x + c[static_cast<std::size_t>(i)];
  return value;
}

constexpr Coefficients kCentreAbove = {3.3871328727963666080e0, 1.3314166789178437745e2,
                                       1.9715909503065514427e3, 1.3731693765509461125e4,
                                       4.5921953931549871457e4, 6.7265770927008700853e4,
                                       3.3430575583588128105e4, 2.5090809287301226727e3};
constexpr Coefficients kCentreBelow = {1.0,
                                       4.2313330701600911252e1,
                                       6.8718700749205790830e2,
                                       5.3941960214247511077e3,
                                       2.1213794301586595867e4,
                                       3.9307895800092710610e4,
                                       2.8729085735721942674e4,
                                       5.2264952788528545610e3};
constexpr Coefficients kSideAbove = {1.42343711074968357734e0,  4.63033784615654529590e0,
                                     5.76949722146069140550e0,  3.64784832476320460504e0,
                                     1.27045825245236838258e0,  2.41780725177450611770e-1,
                                     2.27238449892691845833e-2, 7.74545014278341407640e-4};
constexpr Coefficients kSideBelow = {1.0,
                                     2.05319162663775882187e0,
                                     1.67638483018380384940e0,
                                     6.89767334985100004550e-1,
                                     1.48103976427480074590e-1,
                                     1.51986665636164571966e-2,
                                     5.47593808499534494600e-4,
                                     1.05075007164441684324e-9};
constexpr Coefficients kTailAbove = {6.65790464350110377720e0,  5.46378491116411436990e0,
                                     1.78482653991729133580e0,  2.96560571828504891230e-1,
                                     2.65321895265761230930e-2, 1.24266094738807843860e-3,
                                     2.71155556874348757815e-5, 2.01033439929228813265e-7};
constexpr Coefficients kTailBelow = {1.0,
                                     5.99832206555887937690e-1,
                                     1.36929880922735805310e-1,
                                     1.48753612908506148525e-2,
                                     7.86869131145613259100e-4,
                                     1.84631831751005468180e-5,
                                     1.42151175831644588870e-7,
                                     2.04426310338993978564e-15};

}  // namespace

double NormalQuantile(double probability) {
  const double centred = probability - 0.5;
  if (std::abs(centred) <= 0.425) {
    const double r = 0.180625 - centred * centred;
    return centred * Polynomial(kCentreAbove, r) / Polynomial(kCentreBelow, r);
  }
  const double tail = centred < 0.0 ? probability : 1.0 - probability;
  const double r = std::sqrt(-std::log(tail));
  const double magnitude = r <= 5.0
                               ? Polynomial(kSideAbove, r - 1.6) / Polynomial(kSideBelow, r - 1.6)
                               : Polynomial(kTailAbove, r - 5.0) / Polynomial(kTailBelow, r - 5.0);
  return centred < 0.0 ? -magnitude : magnitude;
}

PingRandom::PingRandom(std::uint64_t seed, std::uint64_t line, std::uint64_t ping)
    : key_(Mixed(Mixed(Mixed(seed + kStep) + (line + 1) * kStep) + (ping + 1) * kStep)) {}

double PingRandom::Uniform(std::uint64_t beam, Purpose purpose) const {
  constexpr std::uint64_t kPurposes = 16;  // room for more without changing the numbers of these
  const std::uint64_t index = beam * kPurposes + static_cast<std::uint64_t>(purpose) + 1;
  const std::uint64_t bits = Mixed(key_ + index * kStep);
  return (static_cast<double>(bits >> 11U) + 0.5) * 0x1p-53;
}

}  // namespace quarro::simulate
