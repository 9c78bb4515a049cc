#pragma once

#include "Platform/Ledger/StoreEngine.h"

#include <map>
#include <optional>

namespace Ledger {

/// What an engine in memory has committed. Outlives the engine, so that a test can crash by dropping
/// everything else; a copy is the disk as it was.
struct MemoryDisk {
   std::map< Vel::String, Vel::String > records;
};

/// Purpose: an engine that keeps its records in memory.
class MemoryEngine final : public StoreEngine {
 public:
   /// Reads and writes `disk`, which outlives it.
   MemoryEngine( Vel::String name, MemoryDisk & disk ) : name_( std::move( name ) ), disk_( disk ) {}

   const Vel::String & name() const override { return name_; }
   Status open() override { return {}; }
   Status begin() override;
   Status put( std::string_view key, std::string_view value ) override;
   Status del( std::string_view key ) override;
   Status delAll( std::string_view prefix ) override;
   Status commit() override;
   void abort() override;
   Status walk( std::string_view prefix, const Visit & visit ) override;

 private:
   Status checked( std::string_view key ) const;

   Vel::String name_;
   MemoryDisk & disk_;
   bool open_ = false;                                             ///< a transaction is open
   std::map< Vel::String, std::optional< Vel::String > > written_; ///< by it; no value: deleted
};

} // namespace Ledger
