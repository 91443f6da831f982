#pragma once

#include "High/High.h"
#include "Low/Up.h"

#include <string.h>
