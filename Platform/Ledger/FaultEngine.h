#pragma once

#include "Platform/Ledger/StoreEngine.h"

namespace Ledger {

/// Purpose: an engine that fails when a test says so. Counts the operations that can fail; with a fault set,
/// the operation of that number, and as many after it as wanted, fail.
class FaultEngine final : public StoreEngine {
 public:
   /// Passes everything on to `engine`, which outlives it.
   explicit FaultEngine( StoreEngine & engine ) : engine_( engine ) {}

   /// What a commit that fails has done: nothing, or all of it without being able to say so.
   enum class Commit { undone, done };
   /// The next operation has number 0 from now on; that of number `first` and `count - 1` after it fail.
   void faultIs( unsigned first, unsigned count = 1, Commit commit = Commit::undone );
   void faultDel() { faultIs( 0, 0 ); }
   /// From now on what is opened and read does not fail, and does not count: the disk is full.
   void onlyWritesFail() { onlyWrites_ = true; }
   /// Operations since faultIs(), those that failed included.
   unsigned operations() const { return operations_; }
   /// Those that failed.
   unsigned faults() const { return faults_; }
   /// Whether the last of those was a commit.
   bool faultedCommit() const { return faultedCommit_; }

   const Vel::String & name() const override { return engine_.name(); }
   Status open() override { return !onlyWrites_ && fails() ? fault( "open" ) : engine_.open(); }
   Status begin() override { return fails() ? fault( "begin" ) : engine_.begin(); }
   Status put( std::string_view key, std::string_view value ) override {
      return fails() ? fault( "write" ) : engine_.put( key, value );
   }
   Status del( std::string_view key ) override { return fails() ? fault( "delete" ) : engine_.del( key ); }
   Status delAll( std::string_view prefix ) override {
      return fails() ? fault( "delete" ) : engine_.delAll( prefix );
   }
   Status commit() override;
   void abort() override { engine_.abort(); }
   Status walk( std::string_view prefix, const Visit & visit ) override {
      return !onlyWrites_ && fails() ? fault( "read" ) : engine_.walk( prefix, visit );
   }

 private:
   bool fails();
   Status fault( const char * operation ) const;

   StoreEngine & engine_;
   unsigned first_ = 0;
   unsigned count_ = 0;
   Commit commit_ = Commit::undone;
   unsigned operations_ = 0;
   unsigned faults_ = 0;
   bool faultedCommit_ = false;
   bool onlyWrites_ = false;
};

} // namespace Ledger
