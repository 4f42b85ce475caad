// The figures of one side in one scene, and the table of them.
#pragma once

#include <string>
#include <vector>

#include "moments.h"

namespace vantelink_bench {

struct Figures {
  std::string scene{}, side{};
  bool peer = false;
  std::size_t changes = 0;         // painted
  std::size_t missed = 0;          // of these, never shown
  double median = 0, late = 0;     // from the change to a picture that shows it, ms; late: 99 of 100
  double pictures = 0, bytes = 0;  // a second
  double cores = 0, display = 0, server = 0;  // processor time a second: of the sender, Xvfb and wineserver
  double likeness = 0;                        // of the picture at rest to the screen, decibels

  double milliseconds_a_picture() const { return pictures > 0 ? 1000 * cores / pictures : 0; }
};

// Fills in changes, missed, median and late. A change is shown by the first picture with its number or a
// later one. A number that a picture shows before it was painted is ignored: a picture can hold one half of a
// number and one half of the next.
void set_delays(Figures& figures, const std::vector<Moment>& painted, const std::vector<Moment>& seen);

// Prints a line for each side in each scene, with the peers' medians and our ratios to them.
void print(const std::vector<Figures>& table);

}  // namespace vantelink_bench
