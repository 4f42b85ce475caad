// FailNth makes one chosen call of a test fail, and fail_each_call repeats a test with each call failing in
// turn.
#pragma once

#include <string>

#include <gtest/gtest.h>

namespace vantelink_test {

// Counts the calls that a fake can make fail. The call with the number `nth`, counted from 1, fails; 0
// means none.
class FailNth {
 public:
  explicit FailNth(int nth = 0) : nth_(nth) {}

  // Counts one call and returns whether this call must fail.
  [[nodiscard]] bool fails() { return ++calls_ == nth_; }

  // Whether the failing call has happened.
  [[nodiscard]] bool reached() const { return calls_ >= nth_; }

 private:
  int nth_;
  int calls_ = 0;
};

// Calls run(fail) with the first call failing, then the second, and so on. Ends after the first run in which
// no call failed because the run made fewer than `nth` calls, and returns this `nth`. The test fails if more
// than `most` runs would be needed.
template <typename Run>
int fail_each_call(Run run, int most = 500) {
  for (int nth = 1; nth <= most; ++nth) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, "call " + std::to_string(nth) + " fails");
    FailNth fail(nth);
    run(fail);
    if (testing::Test::HasFatalFailure() || !fail.reached()) return nth;
  }
  ADD_FAILURE() << "the run still makes more than " << most << " calls";
  return most;
}

}  // namespace vantelink_test
