// The service's names, for the files that run it and that install it.
#pragma once

namespace vlk::agent {

inline constexpr wchar_t kServiceName[] = L"VantelinkAgent";
inline constexpr wchar_t kServiceDisplayName[] = L"Maravek Remote Support";

}  // namespace vlk::agent
