#pragma once

#include "DataPlane/Switch.h"
#include "Platform/Cog/Scheduler.h"

/// Purpose: what can be done to a simulated switch from outside, at run time: by the operator of a demonstration and
/// by tests.
///
/// Names are those of the description (ports, port-channels, VLAN interfaces); rates are bits per second. What changes
/// a link happens in the next turn, as it would outside; traffic changes at the time of the present turn.
namespace DataPlane {

class Simulation {
 public:
   /// Replaces the traffic of a port, or what the members of a port-channel that are up share evenly: from the present
   /// rates linearly to these within `rampSeconds` (0: at once), then constant. Rates from 0 to 10 Tbit/s, ramps up to
   /// ten days.
   virtual Outcome trafficIs( std::string_view name, double inBps, double outBps, double rampSeconds ) = 0;
   /// Gives a port its carrier or takes it away. Port-channels and VLAN interfaces have none of their own: they are up
   /// while a member is.
   virtual Outcome linkIs( std::string_view name, bool up ) = 0;
   /// Deletes a link; it leaves its memberships.
   virtual Outcome linkDel( std::string_view name ) = 0;
   /// Makes a deleted link again, up, with its memberships; it counts on from where it was.
   virtual Outcome linkNew( std::string_view name ) = 0;

   /// What fails until it is set to an empty text: counter refreshes; requests to set a link, which then end with this
   /// error and change nothing; the health of the switch; questions for its routes.
   virtual void countersFaultIs( const Vel::String & text ) = 0;
   virtual void linkSetFaultIs( const Vel::String & text ) = 0;
   virtual void healthFaultIs( const Vel::String & text ) = 0;
   virtual void routesFaultIs( const Vel::String & text ) = 0;
   /// Turns by which results of requests come later than the link's change; 0 unless set.
   virtual void linkSetDelayIs( Vel::U32 turns ) = 0;
   /// Goes on in the turns of another scheduler, which has the same time. Changes and requests that the earlier one has
   /// not carried out are lost, as when the process ends that asked for them.
   virtual void schedulerIs( const Vel::Ptr< Cog::Scheduler > & scheduler ) = 0;
   /// The text that a link loses when it goes down and gets back when a request restores it.
   virtual Outcome addressesIs( std::string_view name, const Vel::String & text ) = 0;
   /// What the link has of it at present; empty also for a link that is not there.
   virtual Vel::String addresses( std::string_view name ) const = 0;

 protected:
   ~Simulation() = default;
};

} // namespace DataPlane
