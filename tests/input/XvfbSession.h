#pragma once
// The private X server lives with the other programs tests start.
#include "support/ProcessFixtures.h"
