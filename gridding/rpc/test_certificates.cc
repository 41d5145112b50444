#include "gridding/rpc/test_certificates.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace quarro::testing {

namespace {

template <auto Free>
struct FreeWith {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using File = std::unique_ptr<std::FILE, FreeWith<std::fclose>>;

File Open(const std::filesystem::path& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode));
  if (!file) throw std::runtime_error("cannot open " + path.string());
  return file;
}

void AddExtension(X509* certificate, int kind, const char* value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
  if (extension == nullptr) throw std::runtime_error("no extension");
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

Certificate NewCertificate(const std::string& name, EVP_PKEY* key, long begins_in_s,
                           long ends_in_s) {
  Certificate certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  std::uint64_t serial = 0;
  RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof(serial));
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1U);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), begins_in_s);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), ends_in_s);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME* subject = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  return certificate;
}

void Write(const std::filesystem::path& stem, X509* certificate, EVP_PKEY* key) {
  PEM_write_PrivateKey(Open(stem.string() + ".key", "w").get(), key, nullptr, nullptr, 0, nullptr,
                       nullptr);
  // In one piece, as somebody who renews a certificate puts it in place.
  PEM_write_X509(Open(stem.string() + ".new", "w").get(), certificate);
  std::filesystem::rename(stem.string() + ".new", stem.string() + ".pem");
}

}  // namespace

TestAuthority::TestAuthority(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
  const Key key(EVP_EC_gen("P-256"));
  const Certificate own = NewCertificate("authority", key.get(), -3600, 3600);
  X509_set_issuer_name(own.get(), X509_get_subject_name(own.get()));
  AddExtension(own.get(), NID_basic_constraints, "critical,CA:TRUE");
  X509_sign(own.get(), key.get(), EVP_sha256());
  Write(folder_ / "authority", own.get(), key.get());
}

void TestAuthority::Make(const std::string& name, const Wanted& wanted) const {
  const Key authority_key(
      PEM_read_PrivateKey(Open(folder_ / "authority.key", "r").get(), nullptr, nullptr, nullptr));
  const Certificate authority(
      PEM_read_X509(Open(folder_ / "authority.pem", "r").get(), nullptr, nullptr, nullptr));
  const Key key(EVP_EC_gen("P-256"));
  const Certificate made = NewCertificate(name, key.get(), wanted.begins_in_s, wanted.ends_in_s);
  X509_set_issuer_name(made.get(), X509_get_subject_name(authority.get()));
  AddExtension(made.get(), NID_basic_constraints, "critical,CA:FALSE");
  if (wanted.for_server) AddExtension(made.get(), NID_subject_alt_name, "DNS:quarro-server");
  X509_sign(made.get(), authority_key.get(), EVP_sha256());
  Write(folder_ / name, made.get(), key.get());
}

void TestAuthority::Use(const std::string& name, MParams& parameters) const {
  parameters.Set("Network", "CertificateAuthority", folder_ / "authority.pem");
  parameters.Set("Network", "Certificate", folder_ / (name + ".pem"));
  parameters.Set("Network", "PrivateKey", folder_ / (name + ".key"));
}

}  // namespace quarro::testing
