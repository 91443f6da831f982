#include "High/High.h"
