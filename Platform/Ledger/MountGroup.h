#pragma once

#include "Platform/Ledger/Mounter.h"

namespace Ledger {

/// Purpose: mounts that are requested together and reported together.
/// Owner: the mounter that fills it, until doClose(); from then on the pending completion.
///
/// Order: doMount() any number of times, doClose() once. In a later turn the mounts are carried out in the
/// order of their requests, and the mounter is told. Anything else is a mistake of the caller and asserted.
class MountGroup final : public Vel::PtrInterface {
 public:
   /// Made by EntityManager::getMountGroup().
   MountGroup( Vel::Ptr< EntityManager > entityManager, Mounter & mounter );
   ~MountGroup() override;

   /// Adds a mount. The same path may be mounted again.
   void doMount( const Mount & mount );

   /// No more mounts follow. Mounter::doMountsComplete() comes from the event loop, unless the mounter is
   /// destroyed before.
   /// \param wait       whether to return only after completion. The store never blocks the loop: false.
   /// \param name       what the group is called in traces; empty: the mounter's name
   /// \param timeLimit  seconds after which completion is reported as failed, 0: never. What this store has,
   ///                   it has at hand, so no limit is ever reached.
   void doClose( bool wait, const Vel::String & name, double timeLimit );

 private:
   friend class Mounter;
   void complete();
   Status mountOne( const Mount & mount );
   void mounterDel();

   Vel::Ptr< EntityManager > entityManager_;
   Mounter * mounter_; ///< null: gone, or told
   std::vector< Mount > mounts_;
   Vel::String name_;
   bool closed_ = false;
};

} // namespace Ledger
