#include "verifier_commands.h"
