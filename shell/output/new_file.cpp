#include "new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace {

[[noreturn]] void cannot_write(const std::string &target, int error)
{
    throw std::runtime_error(target + ": cannot be written: " + std::generic_category().message(error));
}

bool write_all(int file, const std::string &content)
{
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = write(file, content.data() + done, content.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return true;
}

/// The file to replace: the target, or what it leads to as a symbolic link, also when that is not there yet.
std::filesystem::path file_behind(const std::string &target)
{
    std::filesystem::path file = target;
    std::error_code unknown; // then it cannot be written either
    constexpr int links_at_most = 40;
    for (int links = 0; std::filesystem::is_symlink(file, unknown); ++links) {
        if (links == links_at_most)
            cannot_write(target, ELOOP);
        file = file.parent_path() / std::filesystem::read_symlink(file);
    }
    struct stat found {};
    if (stat(file.c_str(), &found) == 0 && !S_ISREG(found.st_mode))
        cannot_write(target, S_ISDIR(found.st_mode) ? EISDIR : EINVAL);
    return file;
}

} // namespace

void write_file(const std::string &target, const std::string &content, bool may_replace)
{
    struct stat found {};
    if (!may_replace && lstat(target.c_str(), &found) == 0)
        throw std::runtime_error(target + " exists already");
    const std::filesystem::path file_to_replace = file_behind(target);
    std::string unfinished;
    int file = -1;
    for (int number = 0; file < 0; ++number) {
        unfinished =
            file_to_replace.parent_path() / (".zel." + std::to_string(getpid()) + "." + std::to_string(number));
        file = open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file < 0 && errno != EEXIST)
            cannot_write(target, errno);
    }
    const bool is_written = write_all(file, content);
    const bool is_closed = close(file) == 0;
    const bool is_done = is_written && is_closed &&
                         renameat2(AT_FDCWD, unfinished.c_str(), AT_FDCWD, file_to_replace.c_str(),
                                   may_replace ? 0 : RENAME_NOREPLACE) == 0;
    if (is_done)
        return;
    const int error = errno;
    unlink(unfinished.c_str());
    cannot_write(target, error);
}
