// Tables of COM methods that contain only the methods that a double supports, for interfaces with dozens of
// methods. The including file defines CINTERFACE before the interfaces' headers.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdlib>

// The index of a method in its interface's table.
#define VLK_SLOT(Interface, Method) (offsetof(Interface##Vtbl, Method) / sizeof(void*))

namespace vantelink_doubles {

inline constexpr std::size_t kMostMethods = 200;

// A call of a method that is not set ends the program. The three methods of IUnknown are always set.
class MethodTable {
 public:
  template <typename Query, typename AddRef, typename Release>
  MethodTable(Query* query_interface, AddRef* add_ref, Release* release) {
    for (void*& method : table_)
      method = reinterpret_cast<void*>(unexpected_call);
    Set(0, query_interface);
    Set(1, add_ref);
    Set(2, release);
  }
  template <typename Function>
  MethodTable& Set(std::size_t slot, Function* function) {
    table_[slot] = reinterpret_cast<void*>(function);
    return *this;
  }
  void** get() { return table_; }

 private:
  static void unexpected_call() { std::abort(); }
  void* table_[kMostMethods];
};

}  // namespace vantelink_doubles
