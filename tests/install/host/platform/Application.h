#pragma once

// The library has a header of this name, too.

namespace host {

inline const char *applicationIdentifier() {
  return "com.example.Host";
}

}  // namespace host
