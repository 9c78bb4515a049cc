#pragma once

#include "MaintenancePlugin/MonitoredIntf.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/IntfMaintenanceProfile.h"

namespace MaintenanceMode {

/// Purpose: decides for one interface when its traffic has gone, shuts it down if its profile says so, and
/// keeps watching it under maintenance. Shared by all units that hold the interface. Owner: the root's
/// collection of interface monitors.
///
/// Invariants:
/// 1. Entering EnterMaint arms the timer (5 s), entering UnderMaint does unless the interface is shut (10 s), and stopping
///    disarms it; Idle, which nobody asks for, leaves it as it is.
/// 2. `state` is written only by stateIs(), which publishes it and arms the timer.
/// 3. Dependent units learn that the interface has drained before the record says so; of one that is shut as it begins,
///    they hear behind it.
class IntfMonSm final : public Vel::Entity {
   VEL_ENTITY( IntfMonSm );
   using Profile = IntfMaintenanceProfile::Status;

   /// Seconds between samples while waiting for traffic to go. Each quiet sample stands for that long a quiet
   /// time.
   static constexpr double thresholdSamplePeriod = 5.0;
   /// Seconds between samples under maintenance.
   static constexpr double passiveSamplePeriod = 10.0;

   /// Only stores; the factory also runs handleInitialized().
   IntfMonSm(
      const Wire::IntfId & intf, const Vel::Ptr< const Cog::TimerWheel > & clock,
      const Vel::Ptr< const Profile > & intfProfile, DrainWatchSm * rootSm,
      const Vel::Ptr< MonitoredIntf > & monitoredIntf, Maintenance::MonIntfState initialState );
   static Vel::Ptr< IntfMonSm > IntfMonSmIs(
      const Wire::IntfId & intf, const Vel::Ptr< const Cog::TimerWheel > & clock,
      const Vel::Ptr< const Profile > & intfProfile, DrainWatchSm * rootSm,
      const Vel::Ptr< MonitoredIntf > & monitoredIntf, Maintenance::MonIntfState initialState );

   VEL_PARAM( Wire::IntfId, intf );
   VEL_STATE( Vel::Ptr< const Cog::TimerWheel >, clock, onClock );
   VEL_STATE( Vel::Ptr< const Profile >, intfProfile, onIntfProfile );
   VEL_PARAM( DrainWatchSm *, rootSm );
   VEL_PARAM( Vel::Ptr< MonitoredIntf >, monitoredIntf );
   VEL_PARAM( Maintenance::MonIntfState, initialState );
   VEL_STATE( Maintenance::MonIntfState, state, onState );
   VEL_ATTR( bool, initialized, onInitialized );
   VEL_ATTR( Vel::String, oldProfileName, onOldProfileName );

   /// The timer.
   struct VelClock final : Cog::TimerReactor< IntfMonSm > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleTimeout(); }
   };
   /// Other fields of the profile are read afresh at every sample, so only `shutdown` is watched.
   struct VelIntfProfile final : Vel::ReactorTo< IntfMonSm, Profile > {
      using ReactorTo::ReactorTo;
      void onShutdown() override { sm()->handleProfileUpdate(); }
   };

   /// Moves the timer to another wheel; it keeps its time. Without a wheel it does not fire.
   void clockIs( const Vel::Ptr< const Cog::TimerWheel > & clock );
   /// The time in seconds that the timer is set to; infinity while it is disarmed.
   double timeMin() const { return timer_ ? timer_->timeMin() : Cog::Timer::never; }
   /// Hands a profile over; the same one again does nothing, null is held but not acted on.
   void intfProfileIs( const Vel::Ptr< const Profile > & intfProfile );
   /// Publishes a new state in the record and sets the timer for it, at once; the same one again does nothing.
   void stateIs( Maintenance::MonIntfState state );
   void hasNotificationActiveIs( bool active );

   // states and timers: IntfMonSm.cpp
   void handleInitialized();
   void handleState();
   void handleTimeout();
   void setMonitoringTimer();
   void setThresholdMonitoringTimeout();
   void setPassiveMonitoringTimeout();
   void stopTimer();

   // decisions: IntfMonSmDrain.cpp
   /// Whether both rates of the latest sample are below the profile's threshold; a rate that is no number is not. There must
   /// be a profile.
   bool isTrafficBelowThreshold() const;
   /// Counts one sample.
   void updateCounters();
   /// Whether it is quiet, and the quiet samples in a row, 5 s each, make up the profile's load interval. There must be a
   /// profile.
   bool hasTrafficDrained() const;
   /// Shuts the interface down or brings it back, as profile, time and `drained` say; true if it is shut
   /// afterwards.
   bool doMaintenanceShutdown( bool drained );

   // what dependent units learn: IntfMonSmUnits.cpp
   /// Puts the interface into the drained sets of the units that depend on it and have one.
   void notifyDependentUnits();
   /// Takes the interface out of the violating ones of each dependent unit that is under maintenance, or puts it there and
   /// counts a violation.
   void updateDependentUnitStatus( bool belowThreshold );

   // profiles: IntfMonSmProfile.cpp
   void handleProfile();
   void handleProfileUpdate();
   void processProfileUpdate();
   void dump( int fd, unsigned indent ) const;

 private:
   /// What a sample leads to in EnterMaint and in UnderMaint.
   void awaitDrain();
   void watchForSpikes();
   void timeMinIs( double seconds );
   /// Whether a profile that shuts interfaces shuts this one now.
   bool mustShut( bool drained ) const;
   /// The name of the profile held, empty while there is none.
   Vel::String profileName() const;

   bool notificationActive_ = false;
   Vel::Watch< VelIntfProfile > profileReactor_;
   Vel::Watch< VelClock > timer_;
};

} // namespace MaintenanceMode
