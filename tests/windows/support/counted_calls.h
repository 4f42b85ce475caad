// Counted system calls: the imports that a module depends on, replaced by functions that call the system and
// of which one call fails in each run of a test.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "tests/windows/support/seam.h"

// Replaces NAME of the DLL in this program. A call that must fail returns `result`, with `error` as the last
// error, without reaching the system. One use per call, at file scope.
#define VLK_COUNTED(library, name, result, error)                                                           \
  extern "C" {                                                                                              \
  void* __imp_##name = reinterpret_cast<void*>(                                                             \
      vlk::test::CountedCall<library, #name, decltype(name), static_cast<long long>(result), error>::call); \
  }

// The same for a function whose header declares no import pointer, so that callers jump to NAME itself.
#define VLK_COUNTED_PLAIN(library, name, result, error) \
  VLK_COUNTED(library, name, result, error)             \
  asm(".globl " #name "\n" #name ":\n jmp *__imp_" #name "(%rip)\n");

namespace vlk::test {

// Whether this call of `name` must fail. False outside a counted run. Callable on any thread.
[[nodiscard]] bool call_fails(const char* name);

// A test that is repeated with each counted call failing in turn.
struct FaultyRuns {
  std::function<void()> prepare = [] {};
  std::function<void()> work;  // only its calls are counted
  // Checks what the work has done. `failed` is the name of the call that failed and its number among the
  // calls of this name, as in "RegOpenKeyExW 2"; empty in the last run, in which no call failed.
  std::function<void(const std::string& failed)> check;
  int most = 500;  // the greatest number of runs
};

// Runs the test once without counting and then with each call failing. Prints the numbers of calls that
// failed, and returns their sum. The test fails if a run leaves GDI objects or kernel handles behind.
int fail_each_counted_call(const FaultyRuns& runs);

// What each failing call makes of a result, by call ("RegOpenKeyExW 2"). A key without a number stands for
// every call of this name whose failure is either without effect or has this one: the calls of a library,
// whose number and meaning its version decides.
using Effects = std::map<std::string, std::string>;

struct EffectRuns {
  std::function<void()> prepare = [] {};
  std::function<void()> work;  // only its calls are counted
  std::function<std::string()> result;
  std::string usual;  // the result of the work if no call fails, or one without an effect
  Effects effects;
  std::function<void(const std::string& failed)> check = [](const std::string&) {};  // what else holds
  int most = 500;                                                                    // number of runs
};

// Fails each call in turn and compares the results. Returns the number of failures. The test also fails if a
// call of `effects` is not made.
int expect_effects(EffectRuns runs);

template <std::size_t Size>
struct CallName {
  char text[Size];
  // Implicit, so that a literal can be a template argument.
  consteval CallName(const char (&literal)[Size]) { std::copy_n(literal, Size, text); }
};

template <CallName library, CallName name, typename Function, long long result, DWORD error>
struct CountedCall;

template <CallName library, CallName name, typename Result, typename... Arguments, long long result,
          DWORD error>
struct CountedCall<library, name, Result(Arguments...), result, error> {
  static Result call(Arguments... arguments) {
    static auto* const system = real<Result(Arguments...)>(library.text, name.text);
    if (!call_fails(name.text)) return system(arguments...);
    SetLastError(error);
    return (Result)result;  // a number, a handle or a pointer
  }
};

}  // namespace vlk::test
