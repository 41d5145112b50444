// The shared record and the parts that guard what threads share.
#include "cli/command_state.h"

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command_fixture.h"

namespace quarro {
namespace {

class FreshState : public CommandFixture {};

TEST_F(FreshState, IsDetachedWithoutGridAndNotDebugging) {
  EXPECT_FALSE(State().Attached());
  EXPECT_FALSE(State().GridActive());
  EXPECT_FALSE(State().Debug());
  EXPECT_EQ(State().engine_index, -1);
  EXPECT_EQ(State().history_length, 50U);
  EXPECT_EQ(State().bbox.Get(), SGBoundingBox());
  EXPECT_EQ(State().projection.Get(), nullptr);
  EXPECT_TRUE(State().interval_start.is_not_a_date_time());
}

TEST_F(FreshState, HasNoGridName) {
  EXPECT_THROW(State().GridName(), CommandProcessor::bad_command);
}

TEST_F(FreshState, HasNoEngine) {
  EXPECT_THROW(State().AttachedEngine(), CommandProcessor::not_attached);
  EXPECT_THROW(State().EngineHostName(), CommandProcessor::not_attached);
}

TEST_F(FreshState, LetsInformationThrough) { EXPECT_EQ(State().log.Filter(), 1); }

TEST(CommandState, TakesTheTemplateFromTheParameters) {
  FakeFrontEnd client;
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate", "templates/north.xml");
  EXPECT_EQ(CommandState(&client, params).bag_template, "templates/north.xml");
  EXPECT_EQ(CommandState(&client, MParams()).bag_template, "");
}

class AttachedState : public CommandFixture {};

TEST_F(AttachedState, KeepsTheEngineWhenADiscoveryShortensTheList) {
  client_.engines = {QuarroSpec{1, 0x10001, 8, 4520, 0x0a000001},
                     QuarroSpec{1, 0x10001, 8, 4521, 0x0a000002}};
  Printed("broadcast");
  Printed("attach 2");
  EXPECT_EQ(State().AttachedEngine().port, 4521U);
  client_.engines.pop_back();
  Printed("broadcast");
  EXPECT_EQ(State().AttachedEngine().port, 4521U);
}

TEST_F(AttachedState, NamesTheEngineAtItsPlaceInANewList) {
  client_.engines = {QuarroSpec{1, 0x10001, 8, 4520, 0x0a000001}};
  Printed("broadcast");
  Printed("attach 1");
  client_.engines.front().port = 9999;
  Printed("broadcast");
  EXPECT_EQ(State().AttachedEngine().port, 9999U);
}

TEST(PendingTable, TakesAnEntryOnce) {
  PendingTable table;
  table.Add(3, "a");
  table.Add(4, "b");
  table.Add(3, "c");
  EXPECT_EQ(table.Count(), 2U);
  std::string name;
  EXPECT_TRUE(table.Take(3, name));
  EXPECT_EQ(name, "c");
  EXPECT_FALSE(table.Take(3, name));
  EXPECT_EQ(name, "c");
  EXPECT_EQ(table.Count(), 1U);
}

TEST(Rendezvous, KeepsASignalThatComesBeforeTheWait) {
  Rendezvous rendezvous;
  rendezvous.Reset();
  rendezvous.Signal(true);
  EXPECT_TRUE(rendezvous.Wait());
  rendezvous.Reset();
  rendezvous.Signal(false);
  EXPECT_FALSE(rendezvous.Wait());
}

TEST(Rendezvous, WaitsForASignalFromAnotherThread) {
  Rendezvous rendezvous;
  rendezvous.Reset();
  std::thread other([&] { rendezvous.Signal(true); });
  EXPECT_TRUE(rendezvous.Wait());
  other.join();
}

}  // namespace
}  // namespace quarro
