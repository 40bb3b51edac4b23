#pragma once

#include <chrono>

/// Every change on the disk passes here first, so that a test can make any one of them the last.
/// The executable chooses: what operators run links NoFaultPoints.cpp, which does nothing.
namespace PublishFaultPoints {

void next();

/// How long a server may say nothing, where it is `usual` for operators: a test has no minutes.
std::chrono::milliseconds patience(std::chrono::milliseconds usual);

} // namespace PublishFaultPoints
