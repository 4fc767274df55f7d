#include "widgets/functions.h"

template bool range<double>(double, double, double&, double&, unsigned, bool, double);
