// VEYRA_PROBE_FAULTS is a list of words, separated by blanks:
//   kill=N        the program ends before its N-th call, with exit code 77
//   fail=N        that call fails with an error of the disk
//   busy=N        that call fails because another program holds the file; both may stand there
//                 for several calls
//   fail-from=N   that call and all later ones fail
//   lose=N        before that call the file that VEYRA_PROBE_LOST names is removed, as by a virus
//                 scanner
//   no-replace    renaming onto an existing file fails, as on some volumes
//   held          the same, as when another program holds that file
//   space=N       N bytes are free
// VEYRA_PROBE_NO_FLUSH does not wait until the disk has everything.
// VEYRA_PROBE_CALLS names a file that gets the number of calls in the end.

#include "updater/FaultPoints.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace {

constexpr int kKilled = 77;

#ifdef _WIN32
constexpr int kDiskFails = 1117; // ERROR_IO_DEVICE
constexpr int kIsHeld = 32;      // ERROR_SHARING_VIOLATION
#else
constexpr int kDiskFails = EIO;
constexpr int kIsHeld = EBUSY;
#endif

std::string variable(const char *name)
{
    const char *const value = std::getenv(name);
    return value ? value : "";
}

std::map<std::string, std::set<long>> parse()
{
    std::map<std::string, std::set<long>> faults;
    std::istringstream words(variable("VEYRA_PROBE_FAULTS"));
    for (std::string word; words >> word;) {
        const size_t sign = word.find('=');
        faults[word.substr(0, sign)].insert(
            sign == std::string::npos ? 1 : std::stol(word.substr(sign + 1)));
    }
    return faults;
}

/// Empty where there is no such fault.
const std::set<long> &numbers(const char *name)
{
    static const auto faults = parse();
    static const std::set<long> none;
    const auto found = faults.find(name);
    return found == faults.end() ? none : found->second;
}

void loseFile()
{
#ifdef _WIN32
    _wremove(_wgetenv(L"VEYRA_PROBE_LOST"));
#else
    std::remove(std::getenv("VEYRA_PROBE_LOST"));
#endif
}

/// 0 where there is no such fault.
long fault(const char *name)
{
    return numbers(name).empty() ? 0 : *numbers(name).begin();
}

class Calls
{
public:
    ~Calls()
    {
        const std::string path = variable("VEYRA_PROBE_CALLS");
        if (path.empty())
            return;
        if (std::FILE *file = std::fopen(path.c_str(), "w")) {
            std::fprintf(file, "%ld", m_count);
            std::fclose(file);
        }
    }

    long next() { return ++m_count; }

private:
    long m_count = 0;
};

} // namespace

int FaultPoints::next()
{
    static Calls calls;
    const long call = calls.next();
    if (call == fault("kill"))
        std::_Exit(kKilled);
    if (call == fault("lose"))
        loseFile();
    if (numbers("busy").contains(call))
        return kIsHeld;
    const long last = fault("fail-from");
    return numbers("fail").contains(call) || (last != 0 && call >= last) ? kDiskFails : 0;
}

FaultPoints::Replacing FaultPoints::replacing()
{
    if (fault("held") != 0)
        return Replacing::Held;
    return fault("no-replace") != 0 ? Replacing::Unknown : Replacing::Works;
}

std::size_t FaultPoints::longestWrite()
{
    // Files are cut off in the middle as well.
    return 1024ull * 1024;
}

bool FaultPoints::waitsForDisk()
{
    return variable("VEYRA_PROBE_NO_FLUSH").empty();
}

std::optional<std::uint64_t> FaultPoints::freeBytes()
{
    const long space = fault("space");
    return space == 0 ? std::nullopt : std::optional<std::uint64_t>(space);
}
