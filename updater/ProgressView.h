#pragma once

#include <memory>
#include <string>

/// What a person sees of the program. Texts are French.
class ProgressView
{
public:
    ProgressView() = default;
    virtual ~ProgressView() = default;
    ProgressView(const ProgressView &) = delete;
    ProgressView &operator=(const ProgressView &) = delete;

    /// What happens from now on.
    virtual void showStep(const std::string &text) = 0;
    virtual void showPercent(int percent) = 0;
    /// Returns when the person has read it.
    virtual void showFailure(const std::string &text) = 0;
};

/// The executable chooses which one it has, by the file that it links: ConsoleView.cpp, or
/// ProgressWindow.cpp for players on Windows. Where `silent` is set it shows nothing.
std::unique_ptr<ProgressView> createProgressView(bool silent);
