#include "quorlin/records/records.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

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

TEST(MessageQueue, EightThreadsKeepTheBoundAndLoseNothing) {
  auto member = peer_member_new(nullptr);
  constexpr int kThreads = 8;
  constexpr int kPushesEach = 2000;
  std::atomic<int> popped{0};
  std::atomic<bool> bound_broken{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPushesEach; ++i) {
        peer_member_push_message(*member, std::to_string(t * kPushesEach + i));
        if (list_count(member->messages) > 100) bound_broken = true;
        if (i % 3 == 0 && peer_member_pop_message(*member)) ++popped;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(bound_broken);
  // Every text is either popped, still queued, or dropped by the bound; the queued ones are
  // distinct, so nothing was freed twice or duplicated.
  std::set<std::string> queued;
  for (auto* node = member->messages.first; node != nullptr; node = node->next) {
    queued.insert(*node->item);
  }
  EXPECT_EQ(static_cast<int>(queued.size()), list_count(member->messages));
  EXPECT_LE(popped + static_cast<int>(queued.size()), kThreads * kPushesEach);
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
  EXPECT_EQ(seven->text, "u");
  EXPECT_EQ(seven->text2, "m");
  EXPECT_EQ(seven->text3, "p");
  auto two = notification_new_kind2("a", "b", 9);
  EXPECT_EQ(two->type, 2);
  EXPECT_EQ(two->number, 9);
}

TEST(Shares, ConstructorsSetTypeNameAndEmptyAccessList) {
  auto connection = connection_share_new();
  EXPECT_EQ(connection->type, 3);
  EXPECT_EQ(connection->name, "Connection");
  EXPECT_EQ(connection->access_list->accessors.first, nullptr);
  auto folder = folder_share_new("docs", std::nullopt);
  EXPECT_EQ(folder->type, 1);
  EXPECT_EQ(folder->path, std::nullopt);
  ShareList shares;
  list_append(shares, std::move(folder));
  share_list_clear(&shares);
  share_list_clear(nullptr);
  EXPECT_EQ(shares.first, nullptr);
}

}  // namespace
}  // namespace quorlin
