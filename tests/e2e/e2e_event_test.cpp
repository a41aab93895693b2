#include "e2e_stack.h"
