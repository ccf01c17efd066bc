#define LEVEL optimized
#include "tests/sim/boundary/access_forms.inc"
