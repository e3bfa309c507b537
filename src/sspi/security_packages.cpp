#include "security_packages.h"
