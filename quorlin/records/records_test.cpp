#include "quorlin/records/records.hpp"

#include <gtest/gtest.h>

#include <string>

namespace quorlin {
namespace {

TEST(MessageQueue, KeepsTheHundredNewestAndPopsOldestFirst) {
  auto member = peer_member_new(nullptr);
  EXPECT_EQ(peer_member_pop_message(*member), std::nullopt);
  for (int i = 0; i <= 100; ++i) peer_member_push_message(*member, std::to_string(i));
  EXPECT_EQ(list_count(member->messages), 100);
  EXPECT_EQ(peer_member_pop_message(*member), "1");
  EXPECT_EQ(peer_member_pop_message(*member), "2");
  peer_member_clear_messages(*member);
  EXPECT_EQ(member->messages.first, nullptr);
  EXPECT_EQ(peer_member_pop_message(*member), std::nullopt);
}

TEST(Notifications, ConstructorsRefuseMissingTexts) {
  EXPECT_EQ(notification_new_kind7("u", std::nullopt, "p"), nullptr);
  EXPECT_EQ(notification_new_kind7(std::nullopt, "m", "p"), nullptr);
  EXPECT_EQ(notification_new_kind4(std::nullopt, 3), nullptr);
  EXPECT_EQ(notification_new_kind2("a", std::nullopt, 3), nullptr);
  auto seven = notification_new_kind7("u", "m", "p");
  ASSERT_NE(seven, nullptr);
  EXPECT_EQ(seven->type, 7);
  EXPECT_EQ(seven->number, 0);
  auto two = notification_new_kind2("a", "b", 9);
  EXPECT_EQ(two->type, 2);
  EXPECT_EQ(two->number, 9);
  EXPECT_EQ(notification_new_kind4("a", 3)->type, 4);
}

}  // namespace
}  // namespace quorlin
