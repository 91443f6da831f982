#include <Torvane/Agent.h>

extern int inSource;
