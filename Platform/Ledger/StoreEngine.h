#pragma once

#include "Platform/Ledger/Status.h"

#include <functional>

/// Purpose: where the state store keeps its records: keys to bytes, in transactions. Production keeps them in
/// files (LmdbEngine), tests in memory (MemoryEngine) and with faults (FaultEngine).
/// Owner: the agent; one user at a time.
///
/// Order: open(), then walk() or transactions: begin(), any put(), del(), delAll(), then commit() or abort().
///
/// Invariants:
/// 1. A transaction takes effect as a whole at commit(), or not at all.
/// 2. After a failed put(), del() or delAll() the caller aborts. A failed commit() has ended the transaction;
///    whether it took effect is not known, and the caller writes the same again later.
/// 3. A failure does not end the engine: the next begin() starts anew, and works once the cause is gone.
/// 4. A failure's text names the engine, and what it could not do and why.
namespace Ledger {

class StoreEngine {
 public:
   /// The most bytes of a key. A key has at least one.
   static constexpr std::size_t maxKey = 511;
   /// Views are valid during the call. False ends the walk.
   using Visit = std::function< bool( std::string_view key, std::string_view value ) >;

   virtual ~StoreEngine() = default;

   /// What failures call it, as "state store /var/lib/maintd/state.mdb".
   virtual const Vel::String & name() const = 0;
   /// Opens what is there or creates it.
   virtual Status open() = 0;
   /// Begins the one transaction that may be open.
   virtual Status begin() = 0;
   /// Writes a record, in place of the one with this key.
   virtual Status put( std::string_view key, std::string_view value ) = 0;
   /// Deletes a record; one that is absent is no failure.
   virtual Status del( std::string_view key ) = 0;
   /// Deletes all records whose key begins with `prefix`.
   virtual Status delAll( std::string_view prefix ) = 0;
   virtual Status commit() = 0;
   virtual void abort() = 0;
   /// Visits the committed records whose key begins with `prefix`, in the order of keys (bytes, unsigned).
   /// Not while a transaction is open.
   virtual Status walk( std::string_view prefix, const Visit & visit ) = 0;
};

} // namespace Ledger
