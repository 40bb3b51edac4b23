#include "updater/ProgressView.h"

#include <cstdio>

namespace {

/// Steps go to the standard error, unless the person wants silence.
class ConsoleView : public ProgressView
{
public:
    explicit ConsoleView(bool silent)
        : m_silent(silent)
    {
    }

    void showStep(const std::string &text) override { write(text); }
    void showPercent(int) override {}
    void showFailure(const std::string &text) override { write(text); }

private:
    void write(const std::string &text) const
    {
        if (!m_silent)
            std::fprintf(stderr, "%s\n", text.c_str());
    }

    bool m_silent;
};

} // namespace

std::unique_ptr<ProgressView> createProgressView(bool silent)
{
    return std::make_unique<ConsoleView>(silent);
}
