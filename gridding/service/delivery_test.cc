#include "gridding/service/delivery.h"

#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"

namespace quarro::service {
namespace {

using ::testing::ElementsAre;
using testing::ReasonOf;
using testing::Replies;

std::unique_ptr<SEBaseResult> Ack() { return std::make_unique<ResultPosAck>(); }

// Requests of each order of call-backs, which note `name` in `replies`.
RequestPtr AcceptFree(Delivery& delivery, Replies& replies, const std::string& name) {
  return delivery.Accept(replies.Expect(name), RequestKind::kQuery, Order::kFree);
}
RequestPtr AcceptLine(Delivery& delivery, Replies& replies, const std::string& name) {
  return delivery.Accept(replies.Expect(name), RequestKind::kLine, Order::kInOrder);
}
RequestPtr AcceptSynch(Delivery& delivery, Replies& replies, const std::string& name) {
  return delivery.Accept(replies.Expect(name), RequestKind::kSynchGrid, Order::kAfterAllEarlier);
}

TEST(Delivery, AnAcknowledgementWaitsForTheCallBacksOfAllEarlierRequests) {
  Replies replies;
  Delivery delivery;
  const auto depth = delivery.Accept(replies.Expect("depth"), RequestKind::kDepth, Order::kFree);
  const auto synch = AcceptSynch(delivery, replies, "synch");
  const auto later = AcceptFree(delivery, replies, "later");
  delivery.Deliver(synch, Ack(), 0);
  delivery.Deliver(later, Ack(), 0);
  delivery.WaitFor(later);
  EXPECT_THAT(replies.Names(), ElementsAre("later"));
  delivery.Deliver(depth, Ack(), 0);
  delivery.WaitForAll();
  EXPECT_THAT(replies.Names(), ElementsAre("later", "depth", "synch"));
}

TEST(Delivery, ABarrierRefusedWhileLinesAreInWorkIsToldAfterThem) {
  Replies replies;
  Delivery delivery;
  const auto line = AcceptLine(delivery, replies, "line");
  const auto synch = AcceptSynch(delivery, replies, "synch");
  delivery.Fail(synch, std::make_exception_ptr(ExSGClientBase("refused")));
  delivery.Deliver(line, Ack(), 0);
  delivery.WaitForAll();
  EXPECT_THAT(replies.Names(), ElementsAre("line", "synch"));
}

TEST(Delivery, LinesAreToldInTheOrderOfTheirAcceptanceWhicheverIsDoneFirst) {
  Replies replies;
  Delivery delivery;
  const auto first = AcceptLine(delivery, replies, "first");
  const auto second = AcceptLine(delivery, replies, "second");
  const auto free = AcceptFree(delivery, replies, "free");
  delivery.Fail(second, std::make_exception_ptr(ExSGClientBase("refused")));
  delivery.Deliver(free, Ack(), 0);
  delivery.WaitFor(free);
  EXPECT_THAT(replies.Names(), ElementsAre("free"));
  delivery.Deliver(first, Ack(), 0);
  delivery.WaitForAll();
  EXPECT_THAT(replies.Names(), ElementsAre("free", "first", "second"));
}

TEST(Delivery, FreeCallBacksRunBesideEachOther) {
  Delivery delivery;
  std::promise<void> other_runs;
  std::promise<void> first_saw_it;
  const auto first = delivery.Accept(
      [&](const SEResultToken&) {
        other_runs.get_future().wait();
        first_saw_it.set_value();
      },
      RequestKind::kDepth, Order::kFree);
  const auto second = delivery.Accept([&](const SEResultToken&) { other_runs.set_value(); },
                                      RequestKind::kDepth, Order::kFree);
  delivery.Deliver(first, Ack(), 0);
  delivery.Deliver(second, Ack(), 0);
  first_saw_it.get_future().wait();
  delivery.WaitForAll();
}

TEST(Delivery, TokensAreNeverTheSame) {
  Replies replies;
  Delivery delivery;
  for (int i = 0; i < 100; ++i) {
    const auto request = delivery.Accept(replies.Expect(), RequestKind::kQuery, Order::kFree);
    delivery.Deliver(request, Ack(), 0);
  }
  delivery.WaitForAll();
  std::set<std::uint32_t> uids;
  for (const SEResultToken& token : replies.Tokens()) {
    uids.insert(token.uid);
    delivery.pool().Take(token.uid);
  }
  EXPECT_EQ(uids.size(), 100U);
}

TEST(Delivery, AFailureIsThrownWithItsReasonAndItsClass) {
  Replies replies;
  Delivery delivery;
  const auto fail = [&](const std::exception_ptr& failure) {
    const auto request = delivery.Accept(replies.Expect(), RequestKind::kQuery, Order::kFree);
    delivery.Fail(request, failure);
    delivery.WaitForAll();
    return replies.Tokens().back().uid;
  };
  const auto no_grid = fail(std::make_exception_ptr(ExSGCNoGrid("none")));
  EXPECT_THROW(delivery.pool().Take(no_grid), ExSGCNoGrid);
  const auto memory = fail(std::make_exception_ptr(std::bad_alloc()));
  EXPECT_THROW(delivery.pool().Take(memory), ExSGCServerResources);
  const auto other = fail(std::make_exception_ptr(std::runtime_error("the disc is gone")));
  EXPECT_EQ(ReasonOf([&] { delivery.pool().Take(other); }), "the disc is gone");
  const auto odd = fail(std::make_exception_ptr(7));
  EXPECT_THROW(delivery.pool().Take(odd), ExSGClientBase);
}

TEST(Delivery, AResultOnItsWayWhileEarlierOnesAreFailedFailsToo) {
  Replies replies;
  Delivery delivery;
  const auto early = delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree);
  const auto query = delivery.Accept(replies.Expect(), RequestKind::kQuery, Order::kFree);
  const auto drop = delivery.Accept(replies.Expect(), RequestKind::kDropGrid, Order::kInOrder);
  const auto late = delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree);
  delivery.FailUnannounced(drop->sequence, std::make_exception_ptr(ExSGClientBase("dropped")));
  for (const auto& request : {early, query, drop, late}) {
    delivery.Deliver(request, Ack(), 0);
    delivery.WaitFor(request);
  }
  const auto tokens = replies.Tokens();
  EXPECT_EQ(ReasonOf([&] { delivery.pool().Take(tokens[0].uid); }), "dropped");
  for (const std::size_t kept : {1U, 2U, 3U}) {
    EXPECT_NO_THROW(delivery.pool().Take(tokens[kept].uid));
  }
}

TEST(Delivery, WaitingForAllWaitsForWhatCallBacksAskFor) {
  Replies replies;
  Delivery delivery;
  const auto last = replies.Expect("second");
  const auto first = delivery.Accept(
      [&](const SEResultToken&) {
        const auto second = delivery.Accept(last, RequestKind::kDepth, Order::kFree);
        delivery.Deliver(second, Ack(), 0);
      },
      RequestKind::kQuery, Order::kFree);
  delivery.Deliver(first, Ack(), 0);
  delivery.WaitForAll();
  EXPECT_THAT(replies.Names(), ElementsAre("second"));
}

TEST(Delivery, ATokenTellsTheSizeCappedAtTheLargestNumber) {
  Replies replies;
  Delivery delivery;
  const auto request = delivery.Accept(replies.Expect(), RequestKind::kDepth, Order::kFree);
  delivery.Deliver(request, Ack(), std::uint64_t{1} << 40U);
  delivery.WaitForAll();
  EXPECT_EQ(replies.Tokens()[0].object_size, 0xffffffffU);
}

}  // namespace
}  // namespace quarro::service
