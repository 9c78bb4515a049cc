#pragma once

#include "Platform/Counters/VelPool.h"
#include "Platform/Vel/Dir.h"

namespace Interface {

/// Purpose: gives one user of the counter pool a directory of the Ethernet ports in it.
/// Owner: that user. The directory is counted and outlives the reader; from then on nothing is added to it or
/// taken from it, and its counts are still the pool's.
///
/// Order: made, enableLegacyShmemManSupport() if wanted, handleInitialized(). Before that the directory is
/// empty.
class EthIntfCounterReaderSm final : public Vel::Entity {
   using AllEthIntfCounterPtrDir = IntfCounterMasquerade::AllEthIntfCounterPtrDir;

   VEL_ENTITY( EthIntfCounterReaderSm );
   /// Made by EthIntfCounterReaderSmIs().
   EthIntfCounterReaderSm(
      const Vel::Ptr< VelPool::EntityManager > & pool, const Vel::Ptr< const Vel::Dir > & writerStatusDir );
   VEL_PARAM( Vel::Ptr< VelPool::EntityManager >, pool );
   /// Who writes the pool; null: not told. The reader reads whatever is in the pool.
   VEL_PARAM( Vel::Ptr< const Vel::Dir >, writerStatusDir );

   /// A new reader of the pool. Throws Vel::RangeError if the pool is null; the directory of writers may be.
   static Vel::Ptr< EthIntfCounterReaderSm > EthIntfCounterReaderSmIs(
      const Vel::Ptr< VelPool::EntityManager > & pool, const Vel::Ptr< const Vel::Dir > & writerStatusDir );

   /// Announces that the user can also read pools written in the older layout. There is one layout, so nothing
   /// comes of it but a trace; it may be called at any time.
   void enableLegacyShmemManSupport();

   /// Fills the directory and keeps it equal to the pool from now on. May be called again.
   void handleInitialized();

   /// The ports whose counters can be read. The same object for the reader's whole life, never null.
   const Vel::Ptr< const AllEthIntfCounterPtrDir > & allEthIntfCounterPtrDir() const { return published_; }

   struct VelIntfCounterDir final : Vel::ReactorTo< EthIntfCounterReaderSm, VelPool::EntityManager > {
      using ReactorTo::ReactorTo;
      void onIntfCounterDir( const Wire::IntfId & intf ) override { sm()->handleIntfCounterDir( intf ); }
   };

 private:
   void handleIntfCounterDir( const Wire::IntfId & intf );

   Vel::Ptr< AllEthIntfCounterPtrDir > output_;
   Vel::Ptr< const AllEthIntfCounterPtrDir > published_;
   Vel::Watch< VelIntfCounterDir > reactor_;
};

} // namespace Interface
