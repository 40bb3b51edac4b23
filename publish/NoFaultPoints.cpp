#include "publish/FaultPoints.h"

void PublishFaultPoints::next() {}
