#include "service_config.h"
