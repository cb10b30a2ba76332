#pragma once

// Every public header of the library.

#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Clock.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/basics/Trace.h"
#include "talvex/math/ClearableFrameLengthsQueue.h"
#include "talvex/math/EFPS_Counter.h"
#include "talvex/math/FixedLengthFrameLengthsQueue.h"
#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/FrameLengthsAnalyzerBase.h"
#include "talvex/math/FramePredicates.h"
#include "talvex/math/FrameQuota.h"
#include "talvex/math/HalfSecondFrameLengthsQueue.h"
#include "talvex/math/OneSecondFrameLengthsQueue.h"
#include "talvex/user_settings/OnlineConfigJsonParser.h"
#include "talvex/user_settings/UserSetting.h"
#include "talvex/user_settings/UserSettingsCenter.h"
