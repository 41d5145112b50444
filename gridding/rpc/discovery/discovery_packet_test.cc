#include "gridding/rpc/discovery/discovery_packet.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarro::rpc {
namespace {

constexpr DiscoveryRequest kRequest{0x0102030405060708};
constexpr DiscoveryReply kReply{.nonce = 0x1112131415161718,
                                .instance = 0x2122232425262728,
                                .engine = {.protocol_version = 1,
                                           .engine_version = (2U << 16U) | 3U,
                                           .threads = 8,
                                           .port = 47601,
                                           .ipv4_address = 0xc0a80107}};

std::vector<std::uint8_t> Bytes(const DiscoveryBytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

TEST(DiscoveryPacket, ARequestHasTheDocumentedLayout) {
  const std::vector<std::uint8_t> expected = {'Q', 'r', 'D', 's', 0, 1, 0, 1, 1, 2, 3, 4, 5, 6, 7,
                                              8,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                              0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Bytes(Encode(kRequest)), expected);
  EXPECT_EQ(ParseRequest(expected), kRequest);
}

TEST(DiscoveryPacket, AReplyHasTheDocumentedLayout) {
  const std::vector<std::uint8_t> expected = {
      'Q',  'r',  'D',  's',  0,    1,    0,    2,                 // mark, version, kind
      0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,              // nonce
      0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28,              // instance
      0,    0,    0,    1,    0,    2,    0,    3,    0, 0, 0, 8,  // versions, threads
      0,    0,    0xb9, 0xf1, 192,  168,  1,    7};                // port, address
  EXPECT_EQ(Bytes(Encode(kReply)), expected);
  EXPECT_EQ(ParseReply(expected), kReply);
}

TEST(DiscoveryPacket, ARequestIsNoReplyAndTheOtherWayRound) {
  EXPECT_FALSE(ParseReply(Encode(kRequest)));
  EXPECT_FALSE(ParseRequest(Encode(kReply)));
}

TEST(DiscoveryPacket, EveryOtherLengthIsMalformed) {
  for (const std::vector<std::uint8_t>& whole : {Bytes(Encode(kRequest)), Bytes(Encode(kReply))}) {
    for (std::size_t length = 0; length < 2 * whole.size(); ++length) {
      if (length == whole.size()) continue;
      std::vector<std::uint8_t> other = whole;
      other.resize(length, 0);
      EXPECT_FALSE(ParseRequest(other)) << length;
      EXPECT_FALSE(ParseReply(other)) << length;
    }
  }
}

TEST(DiscoveryPacket, AnotherMarkVersionOrKindIsMalformed) {
  for (std::size_t offset = 0; offset < 8; ++offset) {
    for (int bit = 0; bit < 8; ++bit) {
      DiscoveryBytes request = Encode(kRequest);
      DiscoveryBytes reply = Encode(kReply);
      request[offset] ^= static_cast<std::uint8_t>(1U << bit);
      reply[offset] ^= static_cast<std::uint8_t>(1U << bit);
      EXPECT_FALSE(ParseRequest(request)) << offset << " " << bit;
      EXPECT_FALSE(ParseReply(reply)) << offset << " " << bit;
    }
  }
}

TEST(DiscoveryPacket, ARequestThatIsNotPaddedWithZerosIsMalformed) {
  for (std::size_t offset = 16; offset < kDiscoveryPacketBytes; ++offset) {
    DiscoveryBytes request = Encode(kRequest);
    request[offset] = 1;
    EXPECT_FALSE(ParseRequest(request)) << offset;
  }
}

TEST(DiscoveryPacket, AReplyWithoutAPortOrThreadsIsMalformed) {
  for (const std::uint32_t port : {0U, 65536U, 0xffffffffU}) {
    DiscoveryReply reply = kReply;
    reply.engine.port = port;
    EXPECT_FALSE(ParseReply(Encode(reply))) << port;
  }
  DiscoveryReply reply = kReply;
  reply.engine.threads = 0;
  EXPECT_FALSE(ParseReply(Encode(reply)));
  reply = kReply;
  reply.engine.port = 65535;
  EXPECT_EQ(ParseReply(Encode(reply)), reply);
}

TEST(DiscoveryPacket, AnyVersionOfTheProtocolIsToldSoThatTheClientCanNameIt) {
  DiscoveryReply reply = kReply;
  reply.engine.protocol_version = 0xfffffffe;
  EXPECT_EQ(ParseReply(Encode(reply)), reply);
}

TEST(DiscoveryPacket, WhatParsesEncodesToTheSameBytes) {
  const unsigned seed = 11;
  std::mt19937 random(seed);
  int requests = 0;
  int replies = 0;
  for (int i = 0; i < 200000; ++i) {
    DiscoveryBytes bytes = (i % 2 == 0) ? Encode(kRequest) : Encode(kReply);
    for (unsigned flips = random() % 4; flips > 0; --flips) {
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    }
    if (const auto request = ParseRequest(bytes)) {
      ++requests;
      EXPECT_EQ(Encode(*request), bytes) << "seed " << seed;
    }
    if (const auto reply = ParseReply(bytes)) {
      ++replies;
      EXPECT_EQ(Encode(*reply), bytes) << "seed " << seed;
    }
  }
  EXPECT_GT(requests, 20000);
  EXPECT_GT(replies, 40000);
}

}  // namespace
}  // namespace quarro::rpc
