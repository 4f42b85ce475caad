// Roots from the system's certificate store named ROOT.
#include <memory>

#include <windows.h>

#include "net/trust_roots.h"

#include <wincrypt.h>

namespace vlk::agent {
namespace {

struct StoreCloser {
  void operator()(void* store) const { CertCloseStore(store, 0); }
};

}  // namespace

void for_each_system_root(const std::function<void(const unsigned char* der, std::size_t size)>& visit) {
  const std::unique_ptr<void, StoreCloser> store(CertOpenSystemStoreW(0, L"ROOT"));
  if (!store) return;
  // Each call releases the certificate of the call before.
  const CERT_CONTEXT* certificate = nullptr;
  while ((certificate = CertEnumCertificatesInStore(store.get(), certificate)) != nullptr) {
    visit(certificate->pbCertEncoded, certificate->cbCertEncoded);
  }
}

}  // namespace vlk::agent
