#include "quorlin/base/list.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace quorlin {
namespace {

// The items from first to last, after checking that the backward links mirror the forward ones.
std::vector<int*> items_of(List<int*>& list) {
  std::vector<int*> forward;
  ListNode<int*>* previous = nullptr;
  for (ListNode<int*>* node = list.first; node != nullptr; node = node->next) {
    EXPECT_EQ(node->previous, previous);
    forward.push_back(node->item);
    previous = node;
  }
  EXPECT_EQ(list.last, previous);
  return forward;
}

TEST(List, InsertAtAcceptsExactlyZeroToCount) {
  int a = 0, b = 0, c = 0, x = 0;
  struct Case {
    int initial;  // how many of a, b, c the List holds first
    int position;
    std::vector<int*> expected;  // empty: the insert must fail and change nothing
  };
  const std::vector<Case> cases = {
      {0, -1, {}},
      {0, 0, {&x}},
      {0, 1, {}},
      {3, -1, {}},
      {3, 0, {&x, &a, &b, &c}},
      {3, 1, {&a, &x, &b, &c}},
      {3, 3, {&a, &b, &c, &x}},
      {3, 4, {}},
      {3, -100, {}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::Message() << "initial " << test.initial << " position " << test.position);
    List<int*> list;
    std::vector<int*> before = {&a, &b, &c};
    before.resize(test.initial);
    for (int* item : before) list_append(list, item);

    ListNode<int*>* node = list_insert_at(list, &x, test.position);
    if (test.expected.empty()) {
      EXPECT_EQ(node, nullptr);
      EXPECT_EQ(items_of(list), before);
    } else {
      ASSERT_NE(node, nullptr);
      EXPECT_EQ(node->item, &x);
      EXPECT_EQ(items_of(list), test.expected);
    }
  }
}

TEST(List, ComparesItemsByIdentityAndKeepsDuplicatesAndNulls) {
  int a = 1, equal_to_a = 1;
  List<int*> list;
  EXPECT_EQ(list_count(list), 0);
  EXPECT_EQ(list.first, nullptr);

  ListNode<int*>* first = list_append(list, &a);
  list_append(list, nullptr);
  list_append(list, &a);
  EXPECT_EQ(list_count(list), 3);
  EXPECT_EQ(list_find(list, &a), first);
  EXPECT_EQ(list_find(list, &equal_to_a), nullptr);
  ASSERT_NE(list_find(list, nullptr), nullptr);
  EXPECT_EQ(list_find(list, nullptr)->item, nullptr);

  list_remove(list, &equal_to_a);  // absent: nothing changes
  EXPECT_EQ(items_of(list), (std::vector<int*>{&a, nullptr, &a}));
  list_remove(list, &a);  // only the first of the two goes
  EXPECT_EQ(items_of(list), (std::vector<int*>{nullptr, &a}));
  list_remove(list, nullptr);
  EXPECT_EQ(items_of(list), (std::vector<int*>{&a}));
  list_remove(list, &a);
  EXPECT_EQ(list.first, nullptr);
  EXPECT_EQ(list.last, nullptr);
}

TEST(List, RemovingEndNodesMovesFirstAndLast) {
  int a = 0, b = 0, c = 0;
  List<int*> list;
  for (int* item : {&a, &b, &c}) list_append(list, item);
  list_remove_node(list, list.first);
  EXPECT_EQ(items_of(list), (std::vector<int*>{&b, &c}));
  list_remove_node(list, list.last);
  EXPECT_EQ(items_of(list), (std::vector<int*>{&b}));
  EXPECT_EQ(list.first, list.last);
}

TEST(List, ClearLeavesItemsAloneAndTheListUsable) {
  std::vector<int> items(4, 7);
  List<int*> list;
  for (int& item : items) list_append(list, &item);
  list_clear(list);
  EXPECT_EQ(list.first, nullptr);
  EXPECT_EQ(list.last, nullptr);
  EXPECT_EQ(list_count(list), 0);
  list_prepend(list, &items[1]);
  EXPECT_EQ(items_of(list), (std::vector<int*>{&items[1]}));
  EXPECT_EQ(items, std::vector<int>(4, 7));
}

struct Counted {
  explicit Counted(int* destroyed) : destroyed(destroyed) {}
  ~Counted() { ++*destroyed; }
  int* destroyed;
};

TEST(List, OwningItemsGoWithTheirNodesAndARefusedInsertKeepsTheItem) {
  int destroyed = 0;
  {
    List<std::unique_ptr<Counted>> list;
    list_append(list, std::make_unique<Counted>(&destroyed));
    auto kept = std::make_unique<Counted>(&destroyed);
    EXPECT_EQ(list_insert_at(list, std::move(kept), 5), nullptr);
    EXPECT_NE(kept, nullptr);
    const Counted* second = kept.get();
    list_append(list, std::move(kept));
    list_remove(list, second);
    EXPECT_EQ(destroyed, 1);
    list_append(list, std::make_unique<Counted>(&destroyed));
  }
  EXPECT_EQ(destroyed, 3);
}

static_assert(std::ranges::forward_range<List<int*>>);
static_assert(std::ranges::forward_range<const List<std::unique_ptr<int>>>);

TEST(List, IsARangeOfItsItemsInOrder) {
  List<std::unique_ptr<int>> list;
  EXPECT_EQ(list.begin(), list.end());
  for (int value : {3, 1, 2}) list_append(list, std::make_unique<int>(value));
  for (auto& item : list) *item *= 10;  // items are reachable for change
  std::vector<int> seen;
  const auto& read_only = list;
  for (const auto& item : read_only) seen.push_back(*item);
  EXPECT_EQ(seen, (std::vector<int>{30, 10, 20}));
  EXPECT_EQ(std::ranges::count_if(list, [](const auto& item) { return *item > 15; }), 2);
  auto found = std::ranges::find_if(list, [](const auto& item) { return *item == 10; });
  ASSERT_NE(found, list.end());
  EXPECT_EQ(**++found, 20);
}

TEST(RecursiveLock, TheHolderTakesItAgainAndOthersWaitForTheLastRelease) {
  RecursiveLock lock;
  ASSERT_TRUE(lock.try_lock());
  EXPECT_TRUE(lock.try_lock());
  lock.lock();
  std::thread([&] { EXPECT_FALSE(lock.try_lock()); }).join();
  lock.unlock();
  lock.unlock();
  std::thread([&] { EXPECT_FALSE(lock.try_lock()); }).join();
  lock.unlock();
  std::thread([&] {
    EXPECT_TRUE(lock.try_lock());
    lock.unlock();
  }).join();
}

TEST(ListConcurrency, EightThreadsKeepTheLinksConsistent) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 2000;
  std::vector<int> items(kThreads * kRounds);
  List<int*> list;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        int* item = &items[t * kRounds + i];
        if (i % 2 == 0) {
          list_append(list, item);
        } else {
          list_insert_at(list, item, 1);  // never refused: another item stands before it
          list_remove(list, item - 1);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  // Every thread removed each even item it appended, right after adding the odd one.
  std::vector<int*> remaining = items_of(list);
  EXPECT_EQ(remaining.size(), static_cast<std::size_t>(kThreads * kRounds / 2));
  for (int* item : remaining) EXPECT_EQ((item - items.data()) % 2, 1);
}

}  // namespace
}  // namespace quorlin
