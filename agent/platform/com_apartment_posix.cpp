// No COM here.
#include "platform/com_apartment.h"

namespace vlk {

ComApartment::ComApartment() {}

ComApartment::~ComApartment() {}

}  // namespace vlk
