#pragma once

/// What assistive technology is told about the window's own widgets where Qt's defaults fall short.
namespace AccessibleParts {

/// Once, before the window is shown.
void install();

} // namespace AccessibleParts
