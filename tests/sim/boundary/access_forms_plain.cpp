#define LEVEL plain
#include "tests/sim/boundary/access_forms.inc"
