#include "publish/FaultPoints.h"

void PublishFaultPoints::next() {}

std::chrono::milliseconds PublishFaultPoints::patience(std::chrono::milliseconds usual)
{
    return usual;
}
