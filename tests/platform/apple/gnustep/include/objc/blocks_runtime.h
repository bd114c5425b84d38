#pragma once

// What gnustep-base's headers look for when blocks are in use.

#include <Block.h>
