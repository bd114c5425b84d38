#pragma once

#include <string>
#include <vector>

#include "tools/collector/EventLog.h"

namespace kx::collector {

/// What a host has to do so that its messages arrive here: lines of C++, to be copied as they are.
std::vector<std::string> hostLines(const ListeningAddress &where);

/// What is printed below the first line: by what else the collector can be called, and the host's lines.
std::string nextStepsText(const ListeningAddress &where);

/// Below that, where other devices can call the collector and have to trust its authority: where its
/// certificate can be fetched, and the fingerprint to compare. The QR code of that address is `qrCode`; empty
/// for none.
std::string downloadSteps(const ListeningAddress &where, const std::string &fingerprint,
                          const std::string &qrCode);

/// Where devices fetch the authority's certificate.
std::string downloadURL(const ListeningAddress &where);

}  // namespace kx::collector
