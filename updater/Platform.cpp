#include "updater/Platform.h"

std::optional<std::string> Platform::readFile(const std::string &path, size_t limit)
{
    std::FILE *file = openForReading(path);
    if (!file)
        return std::nullopt;
    std::string content(limit + 1, '\0');
    content.resize(std::fread(content.data(), 1, content.size(), file));
    const bool isWhole = std::ferror(file) == 0 && content.size() <= limit;
    std::fclose(file);
    if (!isWhole)
        return std::nullopt;
    return content;
}
