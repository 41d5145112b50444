// Who may talk to whom.
#include <chrono>
#include <thread>

#include "gridding/remote/network_fixture.h"
#include "gridding/rpc/test_certificates.h"

namespace quarro::testing {
namespace {

using ::testing::HasSubstr;

class Certificates : public NetworkTest {
 protected:
  Certificates() : authority_(directory_.path() / "certificates") {
    authority_.Make("server", {.for_server = true});
    authority_.Make("client", {});
  }

  void StartServerWith(const std::string& name) {
    const MParams before = parameters_;
    authority_.Use(name, parameters_);
    StartServer();
    parameters_ = before;
  }
  // What comes of attaching with a certificate of an authority.
  std::string AttachWith(const TestAuthority& authority, const std::string& name) {
    MParams parameters = parameters_;
    authority.Use(name, parameters);
    SuperGridClient client(parameters);
    return ReasonOf([&] { client.AttachEngine(SpecOf(server_->Port())); });
  }

  TestAuthority authority_;
};

TEST_F(Certificates, ThoseOfOneAuthorityServe) {
  StartServerWith("server");
  authority_.Use("client", parameters_);
  const auto client = NewAttachedClient();
  Construct(*client, "g");
  EXPECT_EQ(Add(*client, Line(1), 4)->used, 19200U);
  const auto bounds = GridBounds(*client);
  EXPECT_GT(Depth(*client, bounds)->grid.rows, 1U);
}

TEST_F(Certificates, AClientWithoutOneIsRefused) {
  StartServerWith("server");
  EXPECT_THAT(ReasonOf([&] { NewAttachedClient(); }),
              AllOf(HasSubstr("cannot be reached with plain text: "),
                    HasSubstr("(is it up? One that wants certificates needs CertificateAuthority, "
                              "Certificate and PrivateKey of section Network)")));
}

TEST_F(Certificates, AClientOfAnotherAuthorityIsRefused) {
  StartServerWith("server");
  const TestAuthority other(directory_.path() / "other");
  other.Make("client", {});
  EXPECT_THAT(AttachWith(other, "client"), HasSubstr("cannot be reached with the certificates"));
  // One that knows the server's authority, but is not signed by it.
  std::filesystem::copy_file(authority_.folder() / "authority.pem",
                             other.folder() / "authority.pem",
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_THAT(AttachWith(other, "client"), HasSubstr("client.pem\" of parameter Certificate"));
}

TEST_F(Certificates, AServerOfAnotherAuthorityIsNotTalkedTo) {
  const TestAuthority other(directory_.path() / "other");
  other.Make("client", {});
  StartServerWith("server");
  const std::string reason = AttachWith(other, "client");
  EXPECT_THAT(reason, HasSubstr("cannot be reached with the certificates of section Network: "));
  EXPECT_THAT(reason, HasSubstr("(is it up, with a certificate of the same authority, made for an "
                                "engine (script/certificates)? One without certificates wants a "
                                "client without CertificateAuthority, Certificate and PrivateKey "
                                "of section Network)"));
}

TEST_F(Certificates, AClientsCertificateDoesNotServeAServer) {
  StartServerWith("client");
  EXPECT_THAT(AttachWith(authority_, "client"),
              HasSubstr("cannot be reached with the certificates"));
}

TEST_F(Certificates, OneThatExpiredIsRefusedOnThisSideAlready) {
  StartServerWith("server");
  authority_.Make("late", {.begins_in_s = -7200, .ends_in_s = -3600});
  EXPECT_THAT(AttachWith(authority_, "late"), HasSubstr("certificate has expired"));
  authority_.Make("early", {.begins_in_s = 3600, .ends_in_s = 7200});
  EXPECT_THAT(AttachWith(authority_, "early"), HasSubstr("certificate is not yet valid"));
  EXPECT_THAT(ReasonOf([&] { StartServerWith("late"); }), HasSubstr("certificate has expired"));
}

TEST_F(Certificates, TheClientsOwnIsReadAndLookedAtAtEachAttachment) {
  StartServerWith("server");
  MParams parameters = parameters_;
  authority_.Use("client", parameters);
  SuperGridClient client(parameters);
  EXPECT_EQ(ReasonOf([&] { client.AttachEngine(SpecOf(server_->Port())); }), "no error");
  authority_.Make("client", {.begins_in_s = -7200, .ends_in_s = -3600});
  EXPECT_THAT(ReasonOf([&] { client.AttachEngine(SpecOf(server_->Port())); }),
              HasSubstr("certificate has expired"));
}

TEST_F(Certificates, FilesThatDoNotServeAreNamed) {
  authority_.Use("server", parameters_);
  Set("PrivateKey", authority_.folder() / "client.key");
  EXPECT_THAT(ReasonOf([&] { StartServer(); }), HasSubstr("it is not the key of the certificate"));
  Set("PrivateKey", authority_.folder() / "none.key");
  EXPECT_THAT(ReasonOf([&] { StartServer(); }), HasSubstr("none.key\" of parameter PrivateKey"));
  Set("PrivateKey", "");
  EXPECT_THAT(ReasonOf([&] { StartServer(); }), HasSubstr("give all three, or none"));
}

TEST_F(Certificates, ARenewedOneIsTakenWithoutARestart) {
  // The first serves clients only.
  authority_.Make("renewed", {});
  StartServerWith("renewed");
  EXPECT_NE(AttachWith(authority_, "client"), "no error");
  authority_.Make("renewed", {.for_server = true});
  std::string reason;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while ((reason = AttachWith(authority_, "client")) != "no error") {
    ASSERT_LT(std::chrono::steady_clock::now(), until) << reason;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
}

TEST_F(Certificates, PlainTextBeyondLoopbackIsRefusedUnlessAllowedInSoManyWords) {
  Set("Address", "0.0.0.0");
  EXPECT_THAT(ReasonOf([&] { StartServer(); }), HasSubstr("without certificates anybody there"));
  Set("AllowPlainText", "true");
  Slog("server").SetFilter(SlogLevel(0));
  ::testing::internal::CaptureStderr();
  StartServer();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("AllowPlainText is set: "));
  Construct(*NewAttachedClient(), "g");
}

TEST_F(Certificates, MetricsBeyondLoopbackAreWarnedOf) {
  Slog("server").SetFilter(SlogLevel(0));
  Set("MetricsAddress", "127.0.0.1:0");
  ::testing::internal::CaptureStderr();
  StartServer();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  server_.reset();
  Set("MetricsAddress", "0.0.0.0:0");
  ::testing::internal::CaptureStderr();
  StartServer();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("the metrics at 0.0.0.0:0 are in plain text and for everybody"));
}

TEST_F(Certificates, WithThemAServerMayListenBeyondLoopback) {
  Set("Address", "0.0.0.0");
  StartServerWith("server");
  EXPECT_EQ(AttachWith(authority_, "client"), "no error");
}

}  // namespace
}  // namespace quarro::testing
