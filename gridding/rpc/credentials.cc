#include "gridding/rpc/credentials.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <grpcpp/security/server_credentials.h>
#include <grpcpp/security/tls_certificate_provider.h>
#include <grpcpp/security/tls_credentials_options.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "engine/exceptions.h"

namespace quarro::rpc {

namespace {

constexpr unsigned kReloadSeconds = 5;

template <auto Free>
struct FreeWith {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Bio = std::unique_ptr<BIO, FreeWith<BIO_free>>;
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using Store = std::unique_ptr<X509_STORE, FreeWith<X509_STORE_free>>;
using StoreContext = std::unique_ptr<X509_STORE_CTX, FreeWith<X509_STORE_CTX_free>>;

[[noreturn]] void Refuse(const char* key, const std::string& path, const std::string& reason) {
  throw ExSGClientBase("the file \"" + path + "\" of parameter " + key +
                       " in section Network does not serve: " + reason);
}

std::string ReadFile(const char* key, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Refuse(key, path, "it cannot be read");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Bio BioOf(const std::string& text) {
  return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// All certificates of a PEM text.
std::vector<Certificate> ReadCertificates(const char* key, const std::string& path) {
  const std::string text = ReadFile(key, path);
  const Bio bio = BioOf(text);
  std::vector<Certificate> certificates;
  while (X509* next = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) {
    certificates.emplace_back(next);
  }
  ERR_clear_error();
  if (certificates.empty()) Refuse(key, path, "it holds no certificate in PEM form");
  return certificates;
}

Key ReadKey(const char* key, const std::string& path) {
  const std::string text = ReadFile(key, path);
  const Bio bio = BioOf(text);
  Key private_key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  if (!private_key) Refuse(key, path, "it holds no private key in PEM form");
  return private_key;
}

// Why the authority's certificates do not vouch for the first of `chain`; empty when they do.
std::string ReasonAgainst(const std::vector<Certificate>& chain,
                          const std::vector<Certificate>& authority) {
  const Store store(X509_STORE_new());
  for (const Certificate& trusted : authority) X509_STORE_add_cert(store.get(), trusted.get());
  STACK_OF(X509)* between = sk_X509_new_null();
  for (std::size_t i = 1; i < chain.size(); ++i) sk_X509_push(between, chain[i].get());
  const StoreContext context(X509_STORE_CTX_new());
  X509_STORE_CTX_init(context.get(), store.get(), chain.front().get(), between);
  const int verified = X509_verify_cert(context.get());
  const int error = X509_STORE_CTX_get_error(context.get());
  sk_X509_free(between);
  ERR_clear_error();
  return verified == 1 ? "" : X509_verify_cert_error_string(error);
}

}  // namespace

void CheckCertificates(const NetworkSettings& settings) {
  if (!settings.UsesTls()) return;
  const auto authority = ReadCertificates("CertificateAuthority", settings.certificate_authority);
  const auto chain = ReadCertificates("Certificate", settings.certificate);
  const Key key = ReadKey("PrivateKey", settings.private_key);
  const bool belong_together = X509_check_private_key(chain.front().get(), key.get()) == 1;
  ERR_clear_error();
  if (!belong_together) {
    Refuse("PrivateKey", settings.private_key,
           "it is not the key of the certificate \"" + settings.certificate + "\"");
  }
  const std::string reason = ReasonAgainst(chain, authority);
  if (!reason.empty()) Refuse("Certificate", settings.certificate, reason);
}

std::shared_ptr<grpc::ServerCredentials> ServerCredentialsFor(const NetworkSettings& settings) {
  if (!settings.UsesTls()) return grpc::InsecureServerCredentials();
  CheckCertificates(settings);
  grpc::experimental::TlsServerCredentialsOptions options(
      std::make_shared<grpc::experimental::FileWatcherCertificateProvider>(
          settings.private_key, settings.certificate, settings.certificate_authority,
          kReloadSeconds));
  options.watch_root_certs();
  options.watch_identity_key_cert_pairs();
  options.set_cert_request_type(GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  return grpc::experimental::TlsServerCredentials(options);
}

std::shared_ptr<grpc::ChannelCredentials> ChannelCredentialsFor(const NetworkSettings& settings) {
  if (!settings.UsesTls()) return grpc::InsecureChannelCredentials();
  CheckCertificates(settings);
  grpc::SslCredentialsOptions options;
  options.pem_root_certs = ReadFile("CertificateAuthority", settings.certificate_authority);
  options.pem_cert_chain = ReadFile("Certificate", settings.certificate);
  options.pem_private_key = ReadFile("PrivateKey", settings.private_key);
  return grpc::SslCredentials(options);
}

}  // namespace quarro::rpc
