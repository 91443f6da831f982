#pragma once

#include "Low/Unit.h"
#include "Low/Up.h"
