// The empty COM apartment of a host without COM.
#include "platform/threads/com_apartment.h"

namespace vlk {

ComApartment::ComApartment() = default;

ComApartment::~ComApartment() = default;

}  // namespace vlk
