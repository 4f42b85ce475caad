// No COM here.
#include "platform/threads/com_apartment.h"

namespace vlk {

ComApartment::ComApartment() {}

ComApartment::~ComApartment() {}

}  // namespace vlk
