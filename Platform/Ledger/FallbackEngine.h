#pragma once

#include "Platform/Ledger/StoreEngine.h"
#include "Platform/Vel/Text.h"

#include <map>
#include <optional>
#include <set>

namespace Ledger {

/// What transactions change: beginnings of keys of which all records go, and after that records that are written, or
/// deleted (no value).
struct StoreChanges {
   std::set< Vel::String > gone;
   std::map< Vel::String, std::optional< Vel::String > > records;

   bool empty() const { return gone.empty() && records.empty(); }
   /// Also takes what has been noted of these keys before.
   void delAll( std::string_view prefix );
   /// What comes after them.
   void add( const StoreChanges & later );
   bool deletes( std::string_view key ) const;
};

/// Purpose: an engine that stands in for another one, and keeps in a file of its own what that one cannot be brought to
/// take: a process that is killed meanwhile leaves it behind, and the next one goes on with it. The file lies in another
/// file system, and may be lost with the system. It holds all that has changed since the other engine took a transaction
/// for the last time, and is written as a whole with each one that it refuses.
/// Owner: the agent.
///
/// Order: as any engine; settle() once a turn, after its transactions.
///
/// Invariants:
/// 1. A commit succeeds when the changes are in the engine or in the file. It tries the engine first, with all that is in
///    the file only; once that has worked the file goes.
/// 2. What the file holds is taken up at open() only by the store that it was written for. That is told by the store's id
///    (RecordKey::storeId()); as long as the engine has not taken one, its name stands for it. The file of another store is
///    a failure of open(), and stays as it is. The first form of the file does not say whose it is.
/// 3. It is taken up if the engine lacks it. That is told by the numbers of transactions, which every transaction writes
///    (RecordKey::header()) and which rise with each commit that succeeds: the engine has none before the one that it took
///    last when the file was written, and none after the file's. So a file that was left behind does no harm, and neither
///    does a commit of the engine that has failed but was done. One that was written for a later state than the engine has
///    is a failure of open(); one that the engine has overtaken goes with settle().
/// 4. A file that is there and cannot be read as a whole is a failure of open(), which names it; nothing of it is taken. If
///    the engine's own header cannot be read, or is of another version, the file is not even looked at: whoever uses the
///    engine reads that header next, and says what is wrong.
class FallbackEngine final : public StoreEngine {
 public:
   /// \param engine  outlives it
   /// \param file    its path; its folder exists
   FallbackEngine( StoreEngine & engine, Vel::String file ) : engine_( engine ), file_( std::move( file ) ) {}

   const Vel::String & name() const override { return engine_.name(); }
   const Vel::String & file() const { return file_; }
   Status open() override;
   Status begin() override;
   Status put( std::string_view key, std::string_view value ) override;
   Status del( std::string_view key ) override;
   Status delAll( std::string_view prefix ) override;
   Status commit() override;
   void abort() override;
   Status walk( std::string_view prefix, const Visit & visit ) override;

   /// Tries to bring into the engine what is in the file only, unless a commit has tried since it was called last.
   /// Success: the engine has everything that was committed. A failure is the engine's.
   Status settle();
   /// Whether the last commit has succeeded; true if there was none.
   bool committed() const { return committed_; }

 private:
   Status checked( std::string_view key ) const;
   Status store( const StoreChanges & changes );
   Status writeInto( const StoreChanges & changes );
   bool mayHold( std::string_view prefix );
   Status writeFile( const StoreChanges & changes ) const;
   Status readFile( const Vel::String & text );
   Status readEngine( bool & isOfThisVersion );
   Status takeUp();

   StoreEngine & engine_;
   const Vel::String file_;
   Vel::String id_;           ///< of the store, as the engine has it; empty: it has none yet
   Vel::U64 base_ = 0;        ///< the transaction that the engine took last
   bool isOvertaken_ = false; ///< a file is there that holds nothing that the engine lacks
   StoreChanges unstored_;    ///< committed, and in the file only
   StoreChanges written_;     ///< by the transaction that is open
   bool open_ = false;        ///< a transaction is
   bool tried_ = false;       ///< the engine was, by a commit since settle()
   bool committed_ = true;
   Status last_; ///< of the engine
};

} // namespace Ledger
