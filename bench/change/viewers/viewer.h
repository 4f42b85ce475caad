// A program that sends the screen, and its viewer in this process: the part that all of them share.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "e2e/support/png_codec.h"
#include "moments.h"

namespace vantelink_bench {

// What a viewer has received since it was made.
struct Received {
  std::uint64_t pictures = 0;  // or updates of a picture
  std::uint64_t bytes = 0;
};

// A viewer receives on a thread of its own from its constructor to its destructor, which also ends the
// program that sends. The functions are for another thread.
class Viewer {
 public:
  Viewer() = default;
  virtual ~Viewer() = default;
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  // The processes that send, their helpers included.
  virtual std::vector<pid_t> processes() const = 0;
  // The last picture's similarity to the screen: the peak signal-to-noise ratio in decibels, at most 100.
  virtual double similarity(const vantelink_test::PngPicture& screen) const = 0;
  // Sends a press and the release of a key that types a letter. Throws std::runtime_error if the viewer has
  // failed.
  virtual void press_key() = 0;

  // Waits for the first picture. Throws std::runtime_error if there is none in time, or if the viewer fails.
  void wait_for_picture() const;
  // Throws std::runtime_error if the viewer has failed since.
  Received received() const;
  // The number of each picture, in order.
  std::vector<Moment> seen() const;

 protected:
  // The viewer's thread calls these.
  void see(std::uint32_t number, std::uint64_t bytes_so_far);
  void see(const Moment& picture, const Received& so_far);
  void fail(const std::string& why);

 private:
  mutable std::mutex mutex_;
  Received received_;         // guarded by mutex_
  std::vector<Moment> seen_;  // guarded by mutex_
  std::string failure_;       // guarded by mutex_
};

// The similarity of a picture of the screen's size to the screen, as Viewer::similarity. `pixels` are 4 bytes
// each, beginning with red, green and blue.
double likeness(const vantelink_test::PngPicture& screen, const std::uint8_t* pixels);

}  // namespace vantelink_bench
