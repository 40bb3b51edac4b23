#include "updater/Platform.h"

Platform::Error Platform::readFile(const std::string &path, size_t limit, std::string &content)
{
    std::FILE *file = nullptr;
    if (Error error = openForReading(path, file))
        return error;
    content.assign(limit + 1, '\0');
    content.resize(std::fread(content.data(), 1, content.size(), file));
    const bool isRead = std::ferror(file) == 0;
    std::fclose(file);
    if (!isRead)
        return {Error::Kind::Other, "la lecture a échoué"};
    if (content.size() > limit)
        return {Error::Kind::Other, "trop long"};
    return {};
}
