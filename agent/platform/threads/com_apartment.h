// The calling thread's membership in the multi-threaded COM apartment; nothing at all where there is no COM.
#pragma once

namespace vlk {

class ComApartment {
 public:
  ComApartment();  // the result is not looked at
  ~ComApartment();
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
};

}  // namespace vlk
