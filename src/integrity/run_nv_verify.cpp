#include "run_nv_verify.h"
