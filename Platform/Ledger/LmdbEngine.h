#pragma once

#include "Platform/Ledger/StoreEngine.h"

struct MDB_cursor;
struct MDB_env;
struct MDB_txn;

namespace Ledger {

/// Purpose: an engine in a file, with LMDB. Writes go through the system's calls and not through mapped
/// memory, so that a full disk is a failure and not a signal. A file that was cut off or is spoilt would be a signal all
/// the same, since reads do go through mapped memory: so one that is opened for the first time is read as a whole by a
/// process of its own before.
///
/// What is written stands on what was committed before. A file that is not the one that was committed to, because it was
/// taken away, or another one has come in its place, is a failure of begin() for as long as that is so.
class LmdbEngine final : public StoreEngine {
 public:
   enum class Durability {
      synced,  ///< a commit is on disk when commit() returns
      unsynced ///< a commit survives the end of the process, not that of the system
   };
   static constexpr std::size_t defaultSize = std::size_t( 1 ) << 30;

   /// \param kind  what the file is, for failures: "state store"
   /// \param file  its path; its folder exists. A second file beside it, with "-lock" at the end, is LMDB's
   ///              own.
   /// \param size  how large it may grow, in bytes. A transaction that finds no room fails, and the next one
   ///              finds twice as much. Reserves addresses, not disk.
   LmdbEngine(
      const Vel::String & kind, Vel::String file, Durability durability, std::size_t size = defaultSize );
   ~LmdbEngine() override;
   LmdbEngine( const LmdbEngine & ) = delete;
   LmdbEngine & operator=( const LmdbEngine & ) = delete;

   const Vel::String & name() const override { return name_; }
   Status open() override;
   Status begin() override;
   Status put( std::string_view key, std::string_view value ) override;
   Status del( std::string_view key ) override;
   Status delAll( std::string_view prefix ) override;
   Status commit() override;
   void abort() override;
   Status walk( std::string_view prefix, const Visit & visit ) override;

 private:
   Status outcome( const char * operation, int error );
   int beginTransaction();
   int delAllOf( std::string_view prefix );
   int walkOver( std::string_view prefix, const Visit & visit );
   void close();
   int openEnvironment();
   int syncFolder() const;
   Status readable() const;
   Status reopen();
   bool isAnotherFile() const;
   bool isWhatWasCommitted();
   Status notWhatWasCommitted( const char * what ) const;
   Vel::U64 lastTransaction() const;

   Vel::String name_;
   Vel::String file_;
   Durability durability_;
   std::size_t size_;
   MDB_env * env_ = nullptr;
   MDB_txn * txn_ = nullptr;
   MDB_cursor * writer_ = nullptr; ///< of the transaction; stays near the last record written
   unsigned dbi_ = 0;
   bool full_ = false;   ///< the last transaction found no room
   bool opened_ = false; ///< it has been open
   // The file when it was opened last.
   Vel::U64 device_ = 0, inode_ = 0;
   Vel::U64 last_ = 0;   ///< the transaction that was committed last, by LMDB's numbers
   bool unsure_ = false; ///< the next one was, or was not
};

} // namespace Ledger
