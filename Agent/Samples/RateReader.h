#pragma once

#include "Agent/Model/Samples.h"
#include "Platform/Counters/VelPool.h"
#include "Platform/Model/Bridging.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/Lag.h"

#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

/// Purpose: what all configured interfaces carry, from one reading of the ports' counters to the next. The same rules as
/// those of the plug-in's monitor: a port-channel is the sum of its configured members, a VLAN interface its busiest
/// member in each direction; octets are those that the ports count.
/// Owner: the samples. Reads the pool, and does not refresh it.
///
/// Invariants:
/// 1. A rate is that of octets which ports have counted between two readings that follow each other, at most
///    `longestInterval` apart, over the time between them. A port that has not been read before, whose counts went back,
///    or that seems to have carried more than any port can has no rate; its counts are what the next one begins at.
/// 2. A port-channel or VLAN interface has a rate only if all of its members have one: a part of a sum would read as a
///    fall of the traffic. What a port carries is measured by the port, so a member that joins or leaves moves the sum by
///    what it carries and no more.
/// 3. A port or port-channel is worked out once a reading, in however many VLANs it is, and a VLAN's members are looked up
///    when they change: a trunk is in all VLANs.
namespace Agent {

class RateReader {
 public:
   /// Seconds between two readings; what lies further apart says nothing of the time between.
   static constexpr double longestInterval = 15;
   /// Bits per second; more than the fastest ports carry, 1.6 Tbit/s, and less than a count that has begun anew by the
   /// terabyte seems to.
   static constexpr double impossibleRate = 2e12;

   /// All given.
   struct Model {
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
      Vel::Ptr< const Lag::Config > lagConfig;
      Vel::Ptr< const Bridging::VlanStatusDir > vlanStatusDir;
      Vel::Ptr< const VelPool::EntityManager > pool;
   };
   explicit RateReader( Model model ) : model_( std::move( model ) ) {}
   RateReader( const RateReader & ) = delete;
   RateReader & operator=( const RateReader & ) = delete;

   /// Reads the counters, as they are at `now`, later than the time before, in seconds of the clock.
   void read( double now );
   /// Of the last reading, in the order in which interfaces came into the configuration.
   const SampleSource::Rates & all() const { return all_; }
   /// Null if it has none.
   const Interface::IntfRates * rate( const Wire::IntfId & intf ) const;

 private:
   using Maybe = std::optional< Interface::IntfRates >;
   struct Port {
      Interface::IntfCounterMasquerade::EthIntfStatistics counts;
      double time = 0;      ///< of the counts; 0: it had none in the last reading
      Vel::U64 reading = 0; ///< the last in which it was worked out; 0: none
      Maybe rates;
   };
   struct PortChannel {
      Vel::U64 reading = 0;
      Maybe rates;
   };
   // With their ids; they stay where they are while they are read.
   using Ports = std::unordered_map< Wire::IntfId, Port >;
   using PortChannels = std::unordered_map< Wire::IntfId, PortChannel >;
   struct VelVlan final : Vel::ReactorTo< RateReader, Bridging::VlanStatus > {
      using ReactorTo::ReactorTo;
      void onVlanPortStatus( const Wire::IntfId & ) override { sm()->handleMembers( entity()->vlanId() ); }
   };
   struct Vlan {
      Vel::Watch< VelVlan > watch;
      Vel::U64 reading = 0;
      bool known = false; ///< its members are
      std::vector< Ports::value_type * > ports;
      std::vector< PortChannels::value_type * > portChannels;
      bool others = false; ///< has members that nobody can count
   };

   void handleMembers( Bridging::VlanId id );
   /// The one of that id, made if it is missing.
   template < class Map >
   static typename Map::value_type & in( Map & map, const Wire::IntfId & intf ) {
      return *map.try_emplace( intf ).first;
   }
   Maybe ratesOf( const Wire::IntfId & intf );
   const Maybe & ofPort( Ports::value_type & of );
   const Maybe & ofPortChannel( PortChannels::value_type & of );
   Maybe ofVlan( const Wire::IntfId & vlanIntf );
   Vlan & vlan( const Bridging::VlanStatus & status );
   void findMembers( const Bridging::VlanStatus & status, Vlan & vlan );

   Model model_;
   double now_ = 0;
   Vel::U64 reading_ = 0;
   // What was read in the last reading.
   Ports ports_;
   PortChannels portChannels_;
   std::unordered_map< Bridging::VlanId, std::unique_ptr< Vlan > > vlans_;
   SampleSource::Rates all_;
   std::unordered_map< Wire::IntfId, std::size_t > places_; ///< in `all_`
};

} // namespace Agent
