#include "DataFolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

char const* const LockFileName = "/labshell.lock";

std::string HolderOf(int descriptor) {
    char text[32] = {};
    ssize_t length = ::pread(descriptor, text, sizeof text - 1, 0);
    std::string holder(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    while (!holder.empty() && (holder.back() == '\n' || holder.back() == ' ')) holder.pop_back();
    return holder.empty() ? "another process" : "process " + holder;
}

// The process id serves only the message of a refused start: the lock holds
// without it, so a failed write is no failure.
void RecordHolder(int descriptor) {
    std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(descriptor, 0) != 0) return;
    ssize_t written = ::pwrite(descriptor, pid.data(), pid.size(), 0);
    static_cast<void>(written);
}

}  // namespace

DataFolderLock::~DataFolderLock() { Release(); }

bool DataFolderLock::Acquire(std::string const& folder, std::string& error) {
    if (descriptor_ >= 0 && folder == folder_) return true;
    std::string path = folder + LockFileName;
    int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        error = "data folder " + folder + ": cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    // flock, not fcntl: its lock belongs to this open file, so a second host
    // in the same process (a test) is refused as another process would be.
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        int reason = errno;
        error = reason == EWOULDBLOCK ? "data folder " + folder + " is in use by labshell " + HolderOf(descriptor)
                                      : "data folder " + folder + ": cannot lock " + path + ": " + std::strerror(reason);
        ::close(descriptor);
        return false;
    }
    RecordHolder(descriptor);
    Release();
    descriptor_ = descriptor;
    folder_ = folder;
    return true;
}

void DataFolderLock::Release() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    descriptor_ = -1;
    folder_.clear();
}
