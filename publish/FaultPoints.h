#pragma once

/// Every change on the disk passes here first, so that a test can make any one of them the last.
/// The executable chooses: what operators run links NoFaultPoints.cpp, which does nothing.
namespace PublishFaultPoints {

void next();

} // namespace PublishFaultPoints
