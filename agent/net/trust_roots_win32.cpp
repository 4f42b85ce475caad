// The root certificates of the system's certificate store ROOT.
#include "net/trust_roots.h"

#include <windows.h>
#include <wincrypt.h>

#include <memory>

namespace vlk::agent {
namespace {

struct StoreCloser {
  using pointer = HCERTSTORE;
  void operator()(HCERTSTORE store) const { CertCloseStore(store, 0); }
};
using UniqueStore = std::unique_ptr<HCERTSTORE, StoreCloser>;

}  // namespace

void for_each_system_root(const std::function<void(const unsigned char* der, std::size_t size)>& visit) {
  const UniqueStore store(CertOpenSystemStoreW(0, L"ROOT"));
  if (!store) return;
  // Each call releases the certificate that the previous call returned.
  const CERT_CONTEXT* certificate = nullptr;
  while ((certificate = CertEnumCertificatesInStore(store.get(), certificate)) != nullptr) {
    visit(certificate->pbCertEncoded, certificate->cbCertEncoded);
  }
}

}  // namespace vlk::agent
