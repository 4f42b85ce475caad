// Trust roots from the system's certificate store.
#include "net/trust_roots.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "support/certificates.h"

namespace vlk::agent {
namespace {

using Der = std::vector<unsigned char>;

std::ptrdiff_t count_root(const Der& wanted) {
  std::vector<Der> roots;
  for_each_system_root(
      [&](const unsigned char* der, std::size_t size) { roots.emplace_back(der, der + size); });
  return std::count(roots.begin(), roots.end(), wanted);
}

// The added certificate stays in the store until the test's desk is removed.
TEST(TrustRoots, AreReadFromTheRootStoreAtEachCall) {
  const Der ours = vantelink_test::TestAuthority().der();
  EXPECT_EQ(count_root(ours), 0);
  const HCERTSTORE store = CertOpenSystemStoreW(0, L"ROOT");
  EXPECT_TRUE(CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, ours.data(),
                                               static_cast<DWORD>(ours.size()), CERT_STORE_ADD_ALWAYS,
                                               nullptr));
  CertCloseStore(store, 0);
  EXPECT_EQ(count_root(ours), 1);
}

}  // namespace
}  // namespace vlk::agent
