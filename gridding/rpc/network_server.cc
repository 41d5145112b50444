#include "gridding/rpc/network_server.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include <grpcpp/grpcpp.h>
#include <grpcpp/health_check_service_interface.h>

#include "engine/exceptions.h"
#include "engine/quarro_spec.h"
#include "gridding/rpc/credentials.h"
#include "gridding/rpc/discovery/discovery_responder.h"
#include "gridding/rpc/engine_service.h"
#include "gridding/rpc/metrics.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/session_table.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/parameter_table.h"
#include "slog/slog.h"

namespace quarro::rpc {

namespace {

// For streams to carry the last events, and for calls to end by themselves.
constexpr std::chrono::seconds kPatienceAtStop{2};

void Log(int level, const std::string& text) {
  Slog log("server");
  log << SlogLevel(level);
  log() << text << endmsg;
}

// Of "host:port" or "[host]:port"; any port will do.
std::string HostOf(const std::string& host_port) {
  const std::string host = host_port.substr(0, host_port.rfind(':'));
  return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

NetworkSettings CheckedSettings(const MParams& params) {
  NetworkSettings settings = ReadNetworkSettings(params);
  CheckCertificates(settings);
  if (!settings.metrics_address.empty() && !IsLoopback(HostOf(settings.metrics_address))) {
    Log(3, "the metrics at " + settings.metrics_address +
               " are in plain text and for everybody who reaches that address");
  }
  if (settings.UsesTls() || IsLoopback(settings.address)) return settings;
  if (!settings.allow_plain_text) {
    throw ExSGClientBase(
        "the address \"" + settings.address +
        "\" is reached from other machines, and without certificates anybody there could use the "
        "engine and read along: set CertificateAuthority, Certificate and PrivateKey of section "
        "Network, or Address to 127.0.0.1, or, on a network that you trust, AllowPlainText to "
        "true");
  }
  Log(3, "AllowPlainText is set: whoever reaches " + settings.address +
             " can use this engine, and read and change what goes over the network");
  return settings;
}

service::EngineConfig CheckedEngine(const MParams& params) {
  service::WarnOfUnknownParameters(params);
  service::EngineConfig config = service::ReadEngineConfig(params);
  std::error_code error;
  if (!std::filesystem::is_directory(config.working_directory, error)) {
    throw ExSGClientBase("the working directory \"" + config.working_directory.string() +
                         "\" is no directory: make it, or set WorkingDirectory of section Engine");
  }
  return config;
}

// One may be mounted later; until then its lines are refused.
void WarnOfMissing(const SurveyDirectories& survey_directories) {
  for (const std::filesystem::path& directory : survey_directories.Missing()) {
    Log(3, "the folder \"" + directory.string() +
               "\" of parameter SurveyDirectories of section Network does not exist (yet): its "
               "lines are found once it does");
  }
}

// Bytes of the files under a folder; what vanishes meanwhile does not count.
std::uint64_t BytesUnder(const std::filesystem::path& folder) {
  std::uint64_t sum = 0;
  std::error_code error;
  auto entry = std::filesystem::recursive_directory_iterator(folder, error);
  for (; !error && entry != std::filesystem::recursive_directory_iterator();
       entry.increment(error)) {
    std::error_code size_error;
    const std::uintmax_t size = entry->file_size(size_error);
    if (!size_error) sum += size;
  }
  return sum;
}

}  // namespace

class NetworkServer::Impl {
 public:
  explicit Impl(const MParams& params)
      : settings_(CheckedSettings(params)),
        sessions_(settings_, CheckedEngine(params)),
        service_(sessions_, settings_.reconnect_seconds) {
    WarnOfMissing(sessions_.host().survey_directories);
    Listen();
    AnswerDiscovery();
    if (!settings_.metrics_address.empty()) {
      metrics_ = std::make_unique<MetricsEndpoint>(settings_.metrics_address,
                                                   [this] { return Snapshot(); });
    }
  }

  ~Impl() { Stop(); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void Stop() {
    if (!server_) return;
    discovery_.reset();
    metrics_.reset();
    server_->GetHealthCheckService()->SetServingStatus(false);
    sessions_.EndAll("the engine is shutting down");
    server_->Shutdown(std::chrono::system_clock::now() + kPatienceAtStop);
    server_->Wait();
    server_.reset();
  }

  const NetworkSettings& settings() const { return settings_; }
  int port() const { return port_; }
  std::uint16_t discovery_port() const { return discovery_ ? discovery_->DiscoveryPort() : 0; }
  int metrics_port() const { return metrics_ ? metrics_->Port() : 0; }

 private:
  void Listen() {
    grpc::EnableDefaultHealthCheckService(true);
    grpc::ServerBuilder builder;
    builder.AddListeningPort(ToText({settings_.address, settings_.port}),
                             ServerCredentialsFor(settings_), &port_);
    builder.RegisterService(&service_);
    builder.SetMaxReceiveMessageSize(static_cast<int>(settings_.max_message_mib << 20U));
    builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
    // Notices clients that vanish, and does not mind theirs that look after this side.
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, static_cast<int>(kPingInterval.count()));
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS,
                               static_cast<int>(kPingTimeout.count()));
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS,
                               static_cast<int>(kPingInterval.count() / 2));
    server_ = builder.BuildAndStart();
    if (!server_ || port_ == 0) {
      server_.reset();
      throw ExSGClientBase("address \"" + settings_.address + "\" port " +
                           std::to_string(settings_.port) +
                           " cannot be listened on: is another server running there? Set Address "
                           "or Port of section Network");
    }
  }

  void AnswerDiscovery() {
    const QuarroSpec spec{.protocol_version = kProtocolVersion,
                          .engine_version = kEngineVersion,
                          .threads = sessions_.host().engine.threads,
                          .port = static_cast<std::uint32_t>(port_),
                          .ipv4_address = 0};
    try {
      discovery_ =
          std::make_unique<DiscoveryResponder>(settings_.address, settings_.discovery_port, spec,
                                               settings_.max_discovery_requests_per_second);
    } catch (const ExSGClientBase& failure) {
      Log(3, "clients cannot find this engine, only be told its address: " + failure.who());
    }
  }

  MetricsSnapshot Snapshot() const {
    MetricsSnapshot snapshot;
    const LineCounters& lines = sessions_.host().lines;
    snapshot.lines_accepted = lines.accepted;
    snapshot.lines_completed = lines.completed;
    snapshot.lines_failed = lines.failed;
    snapshot.soundings_used = lines.soundings_used;
    for (const auto& session : sessions_.All()) {
      const Session::Load load = session->GetLoad();
      snapshot.run_queue_length += load.run_queue_length;
      snapshot.priority_queue_length += load.priority_queue_length;
      snapshot.results_waiting += load.results_waiting;
      snapshot.result_bytes += load.result_bytes;
      ++snapshot.sessions;
    }
    snapshot.store_bytes = BytesUnder(sessions_.host().engine.working_directory);
    return snapshot;
  }

  const NetworkSettings settings_;
  SessionTable sessions_;
  EngineService service_;
  int port_ = 0;
  std::unique_ptr<grpc::Server> server_;
  std::unique_ptr<DiscoveryResponder> discovery_;
  std::unique_ptr<MetricsEndpoint> metrics_;
};

NetworkServer::NetworkServer(const MParams& params) : impl_(std::make_unique<Impl>(params)) {}

NetworkServer::~NetworkServer() = default;

const std::string& NetworkServer::Address() const { return impl_->settings().address; }

std::uint16_t NetworkServer::Port() const { return static_cast<std::uint16_t>(impl_->port()); }

std::uint16_t NetworkServer::DiscoveryPort() const { return impl_->discovery_port(); }

int NetworkServer::MetricsPort() const { return impl_->metrics_port(); }

void NetworkServer::Stop() { impl_->Stop(); }

}  // namespace quarro::rpc
