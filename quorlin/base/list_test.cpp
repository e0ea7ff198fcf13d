#include "quorlin/base/list.hpp"

#include <gtest/gtest.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

// The items from first to last, after checking that the backward links mirror the forward ones
// and the count matches.
std::vector<int*> items_of(List<int*>& list) {
  std::vector<int*> forward;
  ListNode<int*>* previous = nullptr;
  for (ListNode<int*>* node = list.first; node != nullptr; node = node->next) {
    EXPECT_EQ(node->previous, previous);
    forward.push_back(node->item);
    previous = node;
  }
  EXPECT_EQ(list.last, previous);
  EXPECT_EQ(list_count(list), static_cast<int>(forward.size()));
  return forward;
}

// Edits keep both links and the count; a refused insert or an absent item changes nothing; items
// compare by identity (x equals a but is another item), and null is an item.
TEST(List, EditsKeepTheLinksAndFindItemsByIdentity) {
  int a = 1, b = 2, c = 3, x = 1;
  List<int*> list;
  using Items = std::vector<int*>;
  EXPECT_EQ(list_insert_at(list, &x, 1), nullptr);
  EXPECT_EQ(list_insert_at(list, &x, -1), nullptr);
  list_insert_at(list, &a, 0);
  list_append(list, nullptr);
  list_append(list, &c);
  EXPECT_EQ(list_insert_at(list, &b, 3)->item, &b);
  list_insert_at(list, &a, 1);
  EXPECT_EQ(items_of(list), (Items{&a, &a, nullptr, &c, &b}));
  EXPECT_EQ(list.begin().operator->(), &list.first->item);
  EXPECT_EQ(list_find(list, &x), nullptr);
  list_remove(list, &x);
  EXPECT_EQ(list_find(list, &a), list.first);
  list_remove(list, &a);
  EXPECT_EQ(list_find(list, nullptr)->previous, list.first);
  list_remove(list, nullptr);
  EXPECT_EQ(items_of(list), (Items{&a, &c, &b}));
  list_remove_node(list, list.first);
  list_remove_node(list, list.last);
  EXPECT_EQ(items_of(list), Items{&c});
  list_append(list, &a);
  list_clear(list);
  EXPECT_EQ(items_of(list), Items{});
  list_prepend(list, &b);
  list_prepend(list, &a);
  EXPECT_EQ(items_of(list), (Items{&a, &b}));
  const List<int*>::const_iterator first = list.begin();  // a position converts to read-only
  EXPECT_EQ(*first, &a);
}

static_assert(std::ranges::forward_range<List<int*>>);
static_assert(std::ranges::forward_range<const List<std::unique_ptr<int>>>);

double thread_cpu_ms() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

// The holder takes the lock again; another thread sleeps, not spins, until the last release.
TEST(RecursiveLock, TheHolderTakesItAgainAndOthersSleepUntilTheLastRelease) {
  RecursiveLock lock;
  ASSERT_TRUE(lock.try_lock());
  lock.lock();
  ASSERT_TRUE(lock.try_lock());
  lock.unlock();
  lock.unlock();
  std::thread([&] { EXPECT_FALSE(lock.try_lock()); }).join();
  std::atomic<bool> taken{false};
  double waiting_cpu_ms = -1;
  std::thread waiter([&] {
    const double before = thread_cpu_ms();
    lock.lock();
    waiting_cpu_ms = thread_cpu_ms() - before;
    taken = true;
    lock.unlock();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_FALSE(taken);
  lock.unlock();
  waiter.join();
  EXPECT_TRUE(taken);
  EXPECT_LT(waiting_cpu_ms, 100);
  EXPECT_TRUE(lock.try_lock());
}

// Nodes come from the pool and go back to the heap once every node of their block is freed:
// a List built by a thread that then ends, and freed by another, leaves nothing behind.
TEST(List, NodesFreedWholeGiveTheirMemoryBack) {
  const std::size_t before = testing::heap_in_use();
  for (int round = 0; round < 5; ++round) {
    List<int*> list;
    std::thread([&] {
      for (int i = 0; i < 200'000; ++i) list_append(list, nullptr);
    }).join();
    list_clear(list);
  }
  EXPECT_LT(testing::heap_in_use(), before + (1u << 20));  // a round holds over 6 MB
}

// Threads append, insert and remove at once; the links stay consistent.
TEST(ListConcurrency, EightThreadsKeepTheLinksConsistent) {
  std::vector<int> items(8 * 2000);
  List<int*> list;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = t * 2000; i < (t + 1) * 2000; i += 2) {
        list_append(list, &items[i]);
        list_insert_at(list, &items[i + 1], 1);  // never refused: another item stands before it
        list_remove(list, &items[i]);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::vector<int*> remaining = items_of(list);  // the odd items, and only those
  EXPECT_EQ(remaining.size(), items.size() / 2);
  for (int* item : remaining) EXPECT_EQ((item - items.data()) % 2, 1);
}

}  // namespace
}  // namespace quorlin
