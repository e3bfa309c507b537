#include "service_fields.h"
