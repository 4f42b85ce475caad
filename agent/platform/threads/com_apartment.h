// Keeps the calling thread in the multi-threaded COM apartment. Does nothing on hosts without COM.
#pragma once

namespace vlk {

class [[nodiscard]] ComApartment {
 public:
  ComApartment();  // a failure is ignored
  // NOLINTNEXTLINE(performance-trivially-destructible): on Windows the destructor leaves the apartment
  ~ComApartment();
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
};

}  // namespace vlk
