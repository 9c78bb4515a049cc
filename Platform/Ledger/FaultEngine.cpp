#include "Platform/Ledger/FaultEngine.h"

namespace Ledger {

void FaultEngine::faultIs( unsigned first, unsigned count, Commit commit ) {
   first_ = first;
   count_ = count;
   commit_ = commit;
   operations_ = 0;
   faults_ = 0;
   faultedCommit_ = false;
}

bool FaultEngine::fails() {
   const unsigned operation = operations_++;
   const bool result = operation >= first_ && operation - first_ < count_;
   faults_ += result;
   faultedCommit_ = faultedCommit_ && !result;
   return result;
}

Status FaultEngine::fault( const char * operation ) const {
   return Status::failure( name() + ": cannot " + operation + ": fault of the test" );
}

Status FaultEngine::commit() {
   if ( !fails() )
      return engine_.commit();
   faultedCommit_ = true;
   if ( commit_ == Commit::undone ) {
      engine_.abort();
      return fault( "commit" );
   }
   const Status status = engine_.commit();
   return status.ok() ? fault( "commit" ) : status;
}

} // namespace Ledger
