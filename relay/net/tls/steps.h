// Lets a stream's operations follow one another without a trip through the executor, which would ask the
// system for events after each of them.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace vlk::relay {

// Steps of one stream that wait for their turn: the handler that runs takes the next step after it has
// returned from the one before, so no step runs within another. Used on one thread.
class Steps {
 public:
  // Bounds for one turn, so that a peer that sends much does not hold the executor.
  static constexpr std::size_t kMostSteps = 32;
  static constexpr std::size_t kMostBytes = std::size_t{64} << 10;

  // Keeps a step, which moved `bytes` bytes, for the turn that is running. Returns false if none is running
  // or it has come to its bounds.
  template <class Step>
  [[nodiscard]] bool keep(Step& step, std::size_t bytes) {
    if (!running_ || next_ || steps_ >= kMostSteps || bytes_ >= kMostBytes) return false;
    ++steps_;
    bytes_ += bytes;
    next_ = std::make_unique<Kept<Step>>(std::move(step));
    return true;
  }

  // Runs `first`, then the steps that are kept meanwhile. A step that calls this function runs its `first`
  // and returns.
  template <class First>
  // NOLINTNEXTLINE(misc-no-recursion)
  void run(First first) {
    if (running_) return first();
    const Running running(*this);
    first();
    while (const auto step = std::exchange(next_, nullptr))
      step->go_on();
  }

 private:
  struct Any {
    Any() = default;
    virtual ~Any() = default;
    Any(const Any&) = delete;
    Any& operator=(const Any&) = delete;
    virtual void go_on() = 0;
  };
  template <class Step>
  struct Kept final : Any {
    explicit Kept(Step its_step) : step(std::move(its_step)) {}
    void go_on() override { step(); }
    Step step;
  };
  // An exception of a step drops the one that is kept: its owner is being destroyed.
  struct Running {
    explicit Running(Steps& its_steps) : steps(its_steps) { steps.running_ = true; }
    ~Running() {
      steps.running_ = false;
      steps.steps_ = steps.bytes_ = 0;
      const auto dropped = std::exchange(steps.next_, nullptr);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    Steps& steps;
  };

  bool running_ = false;
  std::size_t steps_ = 0;
  std::size_t bytes_ = 0;
  std::unique_ptr<Any> next_;
};

}  // namespace vlk::relay
