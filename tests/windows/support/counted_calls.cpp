// Counts calls on all threads, and repeats a test.
#include "tests/windows/support/counted_calls.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <set>

#include <gtest/gtest.h>

#include "support/waiting.h"
#include "tests/support/fail_nth.h"
#include "tests/windows/support/holdings.h"

namespace vlk::test {
namespace {

constexpr vantelink_test::Milliseconds kPatience{10000};  // for what the work has started to end

using Counts = std::map<std::string, int>;

std::mutex lock;
vantelink_test::FailNth* failure = nullptr;  // null outside a counted run
Counts calls;                                // of the current run, by name
std::string failed;

void begin_counting(vantelink_test::FailNth* nth) {
  const std::lock_guard<std::mutex> guard(lock);
  failure = nth;
  calls.clear();
  failed.clear();
}

std::string end_counting() {
  const std::lock_guard<std::mutex> guard(lock);
  failure = nullptr;
  return failed;
}

void print(const Counts& failures, int sum) {
  std::string list;
  for (const auto& [name, count] : failures)
    list += (list.empty() ? "" : ", ") + name + ' ' + std::to_string(count);
  const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
  std::printf("%s.%s: %d calls failed: %s\n", test->test_suite_name(), test->name(), sum, list.c_str());
}

}  // namespace

bool call_fails(const char* name) {
  const std::lock_guard<std::mutex> guard(lock);
  if (failure == nullptr) return false;
  const int number = ++calls[name];
  if (!failure->fails()) return false;
  failed = std::string(name) + ' ' + std::to_string(number);
  return true;
}

int fail_each_counted_call(const FaultyRuns& runs) {
  // The first call loads libraries and fills caches, which stay.
  runs.prepare();
  runs.work();
  Counts failures;
  const int last = vantelink_test::fail_each_call(
      [&](vantelink_test::FailNth& nth) {
        runs.prepare();
        const Holdings before = holdings();
        begin_counting(&nth);
        runs.work();
        const std::string call = end_counting();
        const testing::ScopedTrace trace(__FILE__, __LINE__, call.empty() ? "no call fails" : call);
        // Threads that the work has started may end a moment later.
        EXPECT_TRUE(vantelink_test::eventually([&] { return holdings() == before; }, kPatience))
            << "GDI objects " << before.gdi << " -> " << gdi_objects() << ", handles " << before.handles
            << " -> " << kernel_handles();
        runs.check(call);
        if (!call.empty()) ++failures[call.substr(0, call.find(' '))];
      },
      runs.most);
  print(failures, last - 1);
  return last - 1;
}

int expect_effects(EffectRuns runs) {
  std::set<std::string> unused;
  for (const auto& [call, effect] : runs.effects)
    unused.insert(call);
  const auto check = [&](const std::string& call) {
    const std::string result = runs.result();
    const std::string name = call.substr(0, call.find(' '));
    const auto single = runs.effects.find(call), any = runs.effects.find(name);
    if (single == runs.effects.end() && any != runs.effects.end()) {
      unused.erase(name);
      EXPECT_TRUE(result == runs.usual || result == any->second) << result;
    } else {
      unused.erase(call);
      EXPECT_EQ(result, single == runs.effects.end() ? runs.usual : single->second);
    }
    runs.check(call);
  };
  const int failures =
      fail_each_counted_call({.prepare = runs.prepare, .work = runs.work, .check = check, .most = runs.most});
  for (const std::string& call : unused)
    ADD_FAILURE() << call << " did not fail";
  return failures;
}

}  // namespace vlk::test
