// This host has no COM.
#include "platform/threads/com_apartment.h"

namespace vlk {

ComApartment::ComApartment() {}

ComApartment::~ComApartment() {}

}  // namespace vlk
