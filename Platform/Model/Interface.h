#pragma once

#include "Platform/Model/MaybeU63.h"
#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: state and traffic of interfaces. Written by the agent from what the switch says; read by everybody.
namespace Interface {

/// Traffic of one interface in one sample. NaN makes two of them differ.
struct IntfRates {
   double outPktsRate = 0; ///< packets per second; not measured, 0
   double inPktsRate = 0;  ///< packets per second; not measured, 0
   double outBitsRate = 0; ///< bits per second, transmitted
   double inBitsRate = 0;  ///< bits per second, received
   double sampleTime = 0;  ///< seconds of the agent's clock; 0: no sample yet

   friend bool operator==( const IntfRates &, const IntfRates & ) = default;
};
/// For example "in 2000 bps, out 1500 bps at 1700000005".
Vel::String stringValue( const IntfRates & rates );

/// Ordinals are part of the stored form.
enum IntfOperStatus : Vel::U32 {
   operUnknown = 0,
   operUp = 1, ///< carries traffic
   operDown = 2
};
/// "operUnknown", "operUp", "operDown"; any other value as "IntfOperStatus(9)".
Vel::String stringValue( IntfOperStatus status );

/// One interface that exists and whose counters can be read. Deleted when either ends, so that a missing
/// counter never reads as silence.
class IntfStatus final : public Vel::Entity {
   VEL_ENTITY( IntfStatus );
   explicit IntfStatus( const Wire::IntfId & intfId ) : intfId_( intfId ) {}

   VEL_PARAM( Wire::IntfId, intfId );
   /// As if we had not shut the interface down ourselves.
   VEL_ATTR( IntfOperStatus, operStatus, onOperStatus );
};

class AllIntfStatusDir final : public Vel::Entity {
   VEL_ENTITY( AllIntfStatusDir );
   VEL_CHILDREN( Wire::IntfId, IntfStatus, intfStatus, onIntfStatus );
};

/// Configuration of ports as members of port-channels. A place to mount; membership is in Lag::Config.
class EthLagIntfConfigDir final : public Vel::Entity {
   VEL_ENTITY( EthLagIntfConfigDir );
};

/// Counters of Ethernet ports. Written by the counter reader only; they do not change while one event is
/// handled.
namespace IntfCounterMasquerade {

/// Counts since the interface exists; they never decrease.
struct EthIntfStatistics {
   Vel::U64 inOctets = 0;   ///< bytes received
   Cog::MaybeU63 outOctets; ///< bytes transmitted; none where the port cannot count them

   friend bool operator==( const EthIntfStatistics &, const EthIntfStatistics & ) = default;
};
/// For example "in 100 out 200".
Vel::String stringValue( const EthIntfStatistics & statistics );

/// One view of a port's counters.
class EthIntfCounter final : public Vel::Entity {
   VEL_ENTITY( EthIntfCounter );
   explicit EthIntfCounter( const Vel::Name & name ) : name_( name ) {}

   VEL_PARAM( Vel::Name, name );
   VEL_ATTR( EthIntfStatistics, statistics, onStatistics );
};

/// The counters of one port by name. There are very many of these and few names in each, hence a plain list.
class EthIntfCounterDir final : public Vel::Entity {
   VEL_ENTITY( EthIntfCounterDir );
   explicit EthIntfCounterDir( const Wire::IntfId & intfId ) : intfId_( intfId ) {}

   VEL_PARAM( Wire::IntfId, intfId );

   /// Null if there is none of that name. The live counter is named "current".
   EthIntfCounter * counter( std::string_view name ) const {
      for ( const Vel::Ptr< EthIntfCounter > & c : counters_ )
         if ( c->name() == name )
            return c.get();
      return nullptr;
   }
   /// The counter that is there, or a new one with all counts 0.
   EthIntfCounter * counterIs( std::string_view name );
   /// False if there was none.
   bool counterDel( std::string_view name );

 private:
   std::vector< Vel::Ptr< EthIntfCounter > > counters_;
};

/// Every port whose counters can be read.
class AllEthIntfCounterPtrDir final : public Vel::Entity {
   VEL_ENTITY( AllEthIntfCounterPtrDir );
   VEL_CHILDREN( Wire::IntfId, EthIntfCounterDir, intfCounterDir, onIntfCounterDir );
};

} // namespace IntfCounterMasquerade
} // namespace Interface
