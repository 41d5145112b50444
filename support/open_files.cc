#include "support/open_files.h"

#include <sys/resource.h>

namespace quarro {

namespace {

constexpr std::size_t kEverySystemAllows = 256;

}  // namespace

void RaiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  // A system that refuses leaves the limit as it was, with which the program works too.
  (void)::setrlimit(RLIMIT_NOFILE, &limit);
}

std::size_t OpenFileLimit() {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : kEverySystemAllows;
}

}  // namespace quarro
