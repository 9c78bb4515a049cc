#include "Platform/Counters/EthIntfCounterReaderSm.h"

#include "Platform/Vel/Trace.h"

namespace Interface {

namespace {
Vel::TraceFacility trace( "EthIntfCounterReaderSm" );
}

EthIntfCounterReaderSm::EthIntfCounterReaderSm(
   const Vel::Ptr< VelPool::EntityManager > & pool, const Vel::Ptr< const Vel::Dir > & writerStatusDir )
   : pool_( Vel::validPtr( pool ) ),
     writerStatusDir_( writerStatusDir ),
     output_( Vel::make< AllEthIntfCounterPtrDir >() ),
     published_( output_ ) {
   reactor_.is( pool_, this );
}

Vel::Ptr< EthIntfCounterReaderSm > EthIntfCounterReaderSm::EthIntfCounterReaderSmIs(
   const Vel::Ptr< VelPool::EntityManager > & pool, const Vel::Ptr< const Vel::Dir > & writerStatusDir ) {
   return Vel::make< EthIntfCounterReaderSm >( pool, writerStatusDir );
}

void EthIntfCounterReaderSm::enableLegacyShmemManSupport() {
   VEL_TRACE( trace, 4, "EthIntfCounterReaderSm::enableLegacyShmemManSupport" );
}

void EthIntfCounterReaderSm::handleInitialized() {
   VEL_TRACE(
      trace, 4, "EthIntfCounterReaderSm::handleInitialized: ", pool_->intfCounterDirs(), " interfaces" );
   for ( const auto & [intf, counterDir] : output_->intfCounterDirRange() )
      if ( !pool_->intfCounterDir( intf ) )
         output_->intfCounterDirDel( intf );
   for ( const auto & [intf, counterDir] : pool_->intfCounterDirRange() )
      output_->intfCounterDirPut( intf, counterDir );
   reactor_.hasNotificationActiveIs( true );
}

void EthIntfCounterReaderSm::handleIntfCounterDir( const Wire::IntfId & intf ) {
   if ( IntfCounterMasquerade::EthIntfCounterDir * counterDir = pool_->intfCounterDir( intf ) )
      output_->intfCounterDirPut( intf, counterDir );
   else
      output_->intfCounterDirDel( intf );
}

} // namespace Interface
