// The version of this software, as the API tells it.
#pragma once

inline constexpr char kSoftwareVersion[] = "03.01";
