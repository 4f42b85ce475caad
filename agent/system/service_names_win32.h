// The service's names, shared by the file that runs the service and the file that installs it.
#pragma once

namespace vlk::agent {

inline constexpr wchar_t kServiceName[] = L"VantelinkAgent";
inline constexpr wchar_t kServiceDisplayName[] = L"Maravek Remote Support";

}  // namespace vlk::agent
