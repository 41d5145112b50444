// A server in this process, and its protocol spoken by hand.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/rpc/network_server.h"
#include "gridding/rpc/protocol.h"
#include "gridding/rpc/quarro_v1.grpc.pb.h"
#include "slog/slog.h"

namespace quarro::testing {

class ProtocolTest : public ::testing::Test {
 protected:
  ProtocolTest() {
    parameters_ = ParametersFor(directory_.path());
    Set("Port", "0");
    Set("DiscoveryPort", "47696");
    Set("ReconnectSeconds", "60");
    Set("SurveyDirectories", directory_.path().string());
    Slog("server").SetFilter(SlogLevel(8));
  }
  ~ProtocolTest() override {
    server_.reset();
    Slog("server").SetFilter(SlogLevel(0));
  }

  void Set(const std::string& key, const std::string& value) {
    parameters_.Set("Network", key, value);
  }
  void Start() {
    server_ = std::make_unique<rpc::NetworkServer>(parameters_);
    channel_ = grpc::CreateChannel("127.0.0.1:" + std::to_string(server_->Port()),
                                   grpc::InsecureChannelCredentials());
    stub_ = v1::Engine::NewStub(channel_);
  }

  v1::OpenSessionReply Open(std::uint32_t version = rpc::kProtocolVersion) {
    v1::OpenSessionRequest request;
    request.set_protocol_version(version);
    v1::OpenSessionReply reply;
    grpc::ClientContext context;
    EXPECT_TRUE(stub_->OpenSession(&context, request, &reply).ok());
    return reply;
  }
  std::string OpenId() { return Open().opened().session(); }

  template <typename Request, typename Reply>
  grpc::Status Call(grpc::Status (v1::Engine::Stub::*method)(grpc::ClientContext*, const Request&,
                                                             Reply*),
                    const Request& request, Reply& reply) {
    grpc::ClientContext context;
    return (stub_.get()->*method)(&context, request, &reply);
  }
  // With a header of its own.
  template <typename Request>
  v1::RequestReply Ask(grpc::Status (v1::Engine::Stub::*method)(grpc::ClientContext*,
                                                                const Request&, v1::RequestReply*),
                       Request request, const std::string& session, std::uint64_t id) {
    request.mutable_header()->set_session(session);
    request.mutable_header()->set_request_id(id);
    v1::RequestReply reply;
    const grpc::Status status = Call(method, request, reply);
    EXPECT_TRUE(status.ok()) << status.error_message();
    return reply;
  }
  void Construct(const std::string& session, std::uint64_t id, const std::string& name = "g") {
    v1::ConstructGridRequest request;
    request.set_name(name);
    request.set_resolution_m(10);
    request.set_min_resolution_m(1);
    EXPECT_TRUE(Ask(&v1::Engine::Stub::ConstructGrid, request, session, id).has_accepted());
  }
  v1::RequestReply Add(const std::string& session, std::uint64_t id, const std::string& name) {
    v1::AddLineRequest request;
    request.set_file_name(name);
    request.set_line_id(static_cast<std::uint32_t>(id));
    return Ask(&v1::Engine::Stub::AddLine, request, session, id);
  }
  v1::RequestReply RequestDepth(const std::string& session, std::uint64_t id) {
    v1::GridResultRequest request;
    request.mutable_box()->set_east(200);
    request.mutable_box()->set_north(200);
    request.set_full_resolution(true);
    return Ask(&v1::Engine::Stub::RequestDepth, request, session, id);
  }
  // The completions after `sequence` up to that of request `last`.
  std::vector<v1::Event> Completions(const std::string& session, std::uint64_t sequence,
                                     std::uint64_t last) {
    v1::CompletionsRequest request;
    request.set_session(session);
    request.set_after_sequence(sequence);
    grpc::ClientContext context;
    const auto stream = stub_->Completions(&context, request);
    std::vector<v1::Event> events;
    v1::Event event;
    while (stream->Read(&event)) {
      if (!event.has_completion()) continue;
      events.push_back(event);
      if (event.completion().request_id() == last) break;
    }
    context.TryCancel();
    stream->Finish();
    return events;
  }

  FreshDirectory directory_;
  MParams parameters_;
  std::unique_ptr<rpc::NetworkServer> server_;
  std::shared_ptr<grpc::Channel> channel_;
  std::unique_ptr<v1::Engine::Stub> stub_;
};

}  // namespace quarro::testing
