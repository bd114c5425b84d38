#pragma once

#include "platform/linux/https/CurlFunctions.h"

namespace kx {

/// Keeps the pair of sockets by which curl is woken from the programs that the host starts: older libcurls
/// make it without a word to that end, and do not tell its numbers. It is found by what it does when curl is
/// woken, which comes and goes unnoticed. To be called before curl sleeps for the first time. False when curl
/// cannot be woken.
bool closeWakeUpSocketsOnExec(CURLM *multi);

}  // namespace kx
