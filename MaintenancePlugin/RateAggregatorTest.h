#pragma once

#include "MaintenancePlugin/Recorded.h"
#include "MaintenancePlugin/SamplerTest.h"

/// Purpose: what the tests of aggregation share: samples and memberships that the test makes itself.
namespace MaintenanceMode {

struct RateAggregator : SamplerTest {
   using TrafficRates = Maintenance::Unit::TrafficRates;
   using U64 = Vel::U64;

   IntfRateAggregatorSm & aggregator() { return *rig.root->intfRateAggSm(); }

   /// Publishes rates as a sample does.
   void sample( MonitoredIntf & sampler, double in, double out ) {
      sampler.setCurRates( sampler.monIntfStatus(), rates( in, out, rig.now() ) );
   }
   /// A sampler that the units hold, with rates published before they did.
   MonitoredIntf &
   member( const IntfId & intf, double in, double out, std::initializer_list< Vel::String > units ) {
      MonitoredIntf & sampler = monitored( intf );
      sample( sampler, in, out );
      for ( const Vel::String & unit : units )
         sampler.dependentUnitIs( unit, true );
      return sampler;
   }
   void aggregateIs( const Vel::String & unit, U64 in, U64 out ) {
      rig.unit( unit ).aggTrafficRateIs( { out, in, 1 } );
   }
   void expectAggregate( const Vel::String & unit, U64 in, U64 out ) {
      EXPECT_EQ( in, rig.unit( unit ).aggTrafficRate().inRate );
      EXPECT_EQ( out, rig.unit( unit ).aggTrafficRate().outRate );
   }
   /// What an interface "et1" of a unit "u1" makes of an aggregate.
   TrafficRates
   calculated( const TrafficRates & aggregate, const IntfRates & toSub, const IntfRates & toAdd ) {
      return aggregator().calculateNewAggregate( "u1", et1, aggregate, toSub, toAdd );
   }
   /// The trace of such a calculation: what there was, went, came and is now, in and out.
   struct Change {
      U64 was, sub, add, is;
   };
   static Vel::String
   change( const Vel::String & unit, const IntfId & intf, const Change & in, const Change & out ) {
      return Vel::text(
         "calculateNewAggregate: unit:", unit, " intfId:", intf, " curAggInRate: ", in.was,
         " ratesToSubInRate:", in.sub, " ratesToAddInRate:", in.add, " newAggInRate:", in.is,
         ". curAggOutRate:", out.was, " ratesToSubOutRate", out.sub, " ratesToAddOutRate: ", out.add,
         " newAggOutRate:", out.is );
   }
};

} // namespace MaintenanceMode
