#include "Platform/Ledger/MountGroup.h"

#include "Platform/Ledger/EntityManager.h"
#include "Platform/Vel/Trace.h"

namespace Ledger {

namespace {
Vel::TraceFacility trace( "Ledger" );

bool isMode( const Vel::String & mode ) { return mode == "r" || mode == "w" || mode == "wc" || mode == "ri"; }
} // namespace

Mounter::~Mounter() {
   for ( MountGroup * group : groups_ )
      group->mounter_ = nullptr;
}

MountGroup::MountGroup( Vel::Ptr< EntityManager > entityManager, Mounter & mounter )
   : entityManager_( std::move( entityManager ) ), mounter_( &mounter ) {
   mounter.groups_.push_back( this );
}

MountGroup::~MountGroup() { mounterDel(); }

void MountGroup::mounterDel() {
   if ( Mounter * mounter = std::exchange( mounter_, nullptr ) )
      std::erase( mounter->groups_, this );
}

void MountGroup::doMount( const Mount & mount ) {
   VEL_ASSERT( !closed_, "!closed()" );
   mounts_.push_back( mount );
}

void MountGroup::doClose( bool wait, const Vel::String & name, double timeLimit ) {
   VEL_TRACE(
      trace, 4, "MountGroup::doClose: \"", name, "\", ", mounts_.size(), " mounts, wait ", wait,
      ", time limit ", timeLimit );
   VEL_ASSERT( !closed_, "!closed()" );
   VEL_ASSERT( !wait, "!wait" );
   closed_ = true;
   if ( !mounter_ )
      return;
   name_ = name.empty() ? mounter_->name() : name;
   entityManager_->later( [group = Vel::Ptr< MountGroup >( this )] { group->complete(); } );
}

void MountGroup::complete() {
   if ( !mounter_ ) {
      VEL_TRACE( trace, 4, "MountGroup::complete: ", name_, ": the mounter is gone" );
      return;
   }
   const Vel::Ptr< Mounter > mounter( mounter_ );
   mounterDel();
   Vel::String failures;
   for ( const Mount & mount : mounts_ ) {
      const Status status = mountOne( mount );
      if ( !status.ok() )
         failures.append( failures.empty() ? "" : "; " ).append( status.text() );
   }
   VEL_TRACE(
      trace, 4, "MountGroup::complete: ", name_, ": ", mounts_.size(), " mounts, ",
      failures.empty() ? "all done" : failures );
   mounter->doMountsComplete(
      failures.empty() ? mountSuccess_ : MountStatus::failure( failures ), entityManager_ );
}

Status MountGroup::mountOne( const Mount & mount ) {
   if ( !EntityManager::isPath( mount.path ) )
      return Status::failure( "\"" + mount.path + "\" is not a path of the state store" );
   if ( !isMode( mount.mode ) )
      return Status::failure( mount.path + ": unknown mode \"" + mount.mode + "\"" );
   const Vel::Entity * present = entityManager_->entity( mount.path );
   if ( !present && mount.mode != "wc" )
      return {};
   try {
      entityManager_->entityIs( mount.path, mount.typeName );
   } catch ( const Vel::NameInUse & error ) {
      return Status::failure( error.what() );
   } catch ( const Vel::Exception & error ) {
      return Status::failure( mount.path + ": " + error.what() );
   }
   return {};
}

} // namespace Ledger
