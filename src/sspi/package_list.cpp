#include "package_list.h"
