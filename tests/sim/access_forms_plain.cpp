#define LEVEL plain
#include "tests/sim/access_forms.inc"
