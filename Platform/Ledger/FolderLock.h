#pragma once

#include "Platform/Ledger/Status.h"

namespace Ledger {

/// Purpose: keeps a second process away from a folder. The lock is the system's: it goes when the process
/// does, however it ends. The file "lock" in the folder tells an operator whose it is and stays behind.
class FolderLock {
 public:
   FolderLock() = default;
   ~FolderLock();
   FolderLock( const FolderLock & ) = delete;
   FolderLock & operator=( const FolderLock & ) = delete;

   /// Takes the folder until this object is destroyed; creates it if it is missing. Fails, without waiting,
   /// if another process has it (its id is named) or the folder cannot be written. What a process that has ended has
   /// left to one that it had just made is let go when that one runs; it is given the chance.
   Status lock( const Vel::String & folder );
   /// Whether lock() has failed because another process has the folder.
   bool inUse() const { return inUse_; }

 private:
   int fd_ = -1;
   bool inUse_ = false;
};

} // namespace Ledger
