#include "readers/calais_registration.h"
