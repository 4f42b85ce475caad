// Enters and leaves the multi-threaded COM apartment.
#include "platform/threads/com_apartment.h"

#include <objbase.h>

namespace vlk {

ComApartment::ComApartment() {
  (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

ComApartment::~ComApartment() {
  CoUninitialize();
}

}  // namespace vlk
