#include "Platform/Model/Interface.h"

namespace Interface {

namespace {
const Vel::TypeRegistration< AllIntfStatusDir > allIntfStatusDirType;
const Vel::TypeRegistration< EthLagIntfConfigDir > ethLagIntfConfigDirType;
const Vel::TypeRegistration< IntfCounterMasquerade::AllEthIntfCounterPtrDir > allEthIntfCounterPtrDirType;
} // namespace

Vel::String stringValue( const IntfRates & rates ) {
   return Vel::text( "in ", rates.inBitsRate, " bps, out ", rates.outBitsRate, " bps at ", rates.sampleTime );
}

Vel::String stringValue( IntfOperStatus status ) {
   switch ( status ) {
   case operUnknown:
      return "operUnknown";
   case operUp:
      return "operUp";
   case operDown:
      return "operDown";
   }
   return Vel::text( "IntfOperStatus(", Vel::U32( status ), ")" );
}

namespace IntfCounterMasquerade {

Vel::String stringValue( const EthIntfStatistics & statistics ) {
   return Vel::text( "in ", statistics.inOctets, " out ", statistics.outOctets );
}

EthIntfCounter * EthIntfCounterDir::counterIs( std::string_view name ) {
   if ( EthIntfCounter * existing = counter( name ) )
      return existing;
   counters_.reserve( counters_.size() + 1 );
   return counters_.emplace_back( Vel::make< EthIntfCounter >( Vel::Name( name ) ) ).get();
}

bool EthIntfCounterDir::counterDel( std::string_view name ) {
   return std::erase_if( counters_, [&]( const auto & c ) { return c->name() == name; } ) > 0;
}

} // namespace IntfCounterMasquerade
} // namespace Interface
