// Frees OpenSSL's data of a thread.
#include "net/thread_records.h"

#include <openssl/crypto.h>

namespace vlk {

ThreadRecords::~ThreadRecords() {
  OPENSSL_thread_stop();
}

}  // namespace vlk
