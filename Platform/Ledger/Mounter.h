#pragma once

#include "Platform/Ledger/Mount.h"
#include "Platform/Vel/Declare.h"

#include <vector>

namespace Ledger {

class EntityManager;
class MountGroup;

/// Purpose: base of whoever mounts paths of the state store and waits until they are there.
/// Owner: whoever made it. The store holds plain pointers and forgets a mounter that is destroyed.
class Mounter : public Vel::Entity {
   VEL_ENTITY( Mounter );
   explicit Mounter( const Vel::String & name ) : name_( name ) {}
   ~Mounter() override;
   VEL_PARAM( Vel::String, name );

   /// The mounts of a group are done. Called once for each group that was closed, from the event loop, never
   /// inside MountGroup::doClose().
   virtual void
   doMountsComplete( MountStatus mountStatus, const Vel::Ptr< EntityManager > & entityManager ) = 0;

 private:
   friend class MountGroup;
   std::vector< MountGroup * > groups_; ///< those that have not reported yet
};

} // namespace Ledger
