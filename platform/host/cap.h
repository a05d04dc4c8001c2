// Codes of the host capability service, which reads the board's profile
// from <root>/etc/hnx/capability.json.
#pragma once

#include <optional>
#include <string>

inline constexpr const char *HNX_CAP_FILE = "/etc/hnx/capability.json";

inline constexpr int HNX_CAP_E_NO_FILE = -301;    // no profile file
inline constexpr int HNX_CAP_E_BAD_FILE = -302;   // unreadable, not JSON, or not an object
inline constexpr int HNX_CAP_E_NOT_READY = -303;  // read before a successful init
inline constexpr int HNX_CAP_E_NO_VALUE = -304;   // nothing at the path
inline constexpr int HNX_CAP_E_TYPE = -305;       // a value of another kind or out of range

// The profile's text that a harness gave in place of the file: null when
// the file is read; else nullopt for no profile, or the text.
const std::optional<std::string> *hnx_cap_given_profile();
