// One labshell per data folder: an exclusive lock (flock) on the file
// "labshell.lock" in the folder, held for the life of the process. The file
// records the holder's process id for the message of a refused start. The
// kernel drops the lock when its holder dies, so a lock left by a dead
// process never blocks; a refused attempt writes nothing.
#pragma once

#include <string>

class DataFolderLock {
public:
    DataFolderLock() = default;
    ~DataFolderLock();
    DataFolderLock(DataFolderLock const&) = delete;
    DataFolderLock& operator=(DataFolderLock const&) = delete;

    // Takes the lock of `folder` (which must exist), letting go of any folder
    // held before only once the new one is held. Taking the folder already
    // held is a no-op. False with `error` naming the folder and the holder.
    bool Acquire(std::string const& folder, std::string& error);
    void Release();
    std::string const& Folder() const { return folder_; }

private:
    int descriptor_ = -1;
    std::string folder_;
};
