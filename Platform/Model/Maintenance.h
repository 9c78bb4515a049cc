#pragma once

#include "Platform/Model/Interface.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"
#include "Platform/Model/MaintenanceUnit.h"

/// Purpose: maintenance as seen from an interface: its groups, its profile, and the record of its monitoring.
namespace Maintenance {

/// Why the profile of a member was selected. Ordinals are part of the stored form.
enum class ProfileChangeCause : Vel::U32 {
   none = 0,
   membership = 1, ///< the member joined or left groups; whoever follows groups acts on that already
   selection = 2   ///< another profile was picked for a member whose groups are the same
};
/// "none", "membership", "selection"; any other value as "ProfileChangeCause(9)".
Vel::String stringValue( ProfileChangeCause cause );

/// The groups of one member and the profiles it runs under. Written by the agent from the configuration, the
/// cause before the selection.
class MemberToGroup : public Vel::Entity {
   VEL_ENTITY( MemberToGroup );
   VEL_SET( GroupKey, group, onGroup );
   VEL_MAP( Profile::ProfileType, Profile::ProfileKey, selectedProfile, onSelectedProfile );
   VEL_ATTR( ProfileChangeCause, profileChangeCause, onProfileChangeCause );

   /// The key of the selected profile of that type, an unset one if there is none.
   const Profile::ProfileKey & selectedProfileKey( Profile::ProfileType type ) const;
};

/// How far the monitoring of an interface is. Ordinals are part of the stored form; any other value can be
/// held.
enum MonIntfState : Vel::U32 {
   monIntfStateIdle = 0,
   monIntfStateEnterMaint = 1, ///< waits for the traffic to leave
   monIntfStateUnderMaint = 2, ///< drained or shut down; watched for traffic that comes back
   monIntfStateStopped = 3     ///< released by a unit while another one still holds it; not sampled
};
/// The enumerator's name; any other value as "MonIntfState(9)".
Vel::String stringValue( MonIntfState state );

/// What is known of one monitored interface, published for others. Written by the monitoring of the interface
/// only. Kept across restarts. All times are seconds of the agent's clock.
class MonIntfStatus final : public Vel::Entity {
   VEL_ENTITY( MonIntfStatus );
   explicit MonIntfStatus(
      const Wire::IntfId & intfId, const Vel::String & profileName = {}, double startTime = 0 )
      : intfId_( intfId ), profileName_( profileName ), startTime_( startTime ) {}

   VEL_PARAM( Wire::IntfId, intfId );
   VEL_ATTR( Vel::String, profileName, onProfileName );
   VEL_PARAM( double, startTime );
   VEL_ATTR( Interface::IntfRates, curRates, onCurRates );
   /// What curRates was before the latest sample; written just before curRates.
   VEL_ATTR( Interface::IntfRates, prevRates, onPrevRates );
   VEL_ATTR( double, lastSampleTime, onLastSampleTime );
   VEL_COUNTER( totalSamples, onTotalSamples );
   VEL_COUNTER( numConsecutiveDrainedSamples, onNumConsecutiveDrainedSamples );
   VEL_COUNTER( numSamplesAboveThresholdPreMaint, onNumSamplesAboveThresholdPreMaint );
   VEL_COUNTER( numSamplesBelowThresholdPreMaint, onNumSamplesBelowThresholdPreMaint );
   VEL_COUNTER( numSamplesAboveThresholdPostMaint, onNumSamplesAboveThresholdPostMaint );
   VEL_COUNTER( numSamplesBelowThresholdPostMaint, onNumSamplesBelowThresholdPostMaint );
   VEL_ATTR( MonIntfState, state, onState );
   VEL_ATTR( double, stateTime, onStateTime );
   /// Traffic came back at least once while the interface was under maintenance.
   VEL_ATTR( bool, spikeUnderMaint, onSpikeUnderMaint );
   /// Left from an earlier run and not yet taken over.
   VEL_ATTR( bool, stale, onStale );

   /// The name of the record: the interface's.
   Vel::String name() const { return stringValue( intfId_ ); }
};

/// The records, and three sets of interfaces whose values are true.
class MonIntfStatusDir final : public Vel::Entity {
   VEL_ENTITY( MonIntfStatusDir );
   VEL_CHILDREN( Wire::IntfId, MonIntfStatus, monIntfStatus, onMonIntfStatus );
   VEL_MAP( Wire::IntfId, bool, monIntfEnterMaint, onMonIntfEnterMaint );
   VEL_MAP( Wire::IntfId, bool, monIntfUnderMaint, onMonIntfUnderMaint );
   VEL_MAP( Wire::IntfId, bool, monIntfSpikeUnderMaint, onMonIntfSpikeUnderMaint );
};

} // namespace Maintenance
