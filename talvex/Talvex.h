#pragma once

// Every public header of the library.

#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Clock.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/basics/Trace.h"
