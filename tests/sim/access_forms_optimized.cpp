#define LEVEL optimized
#include "tests/sim/access_forms.inc"
