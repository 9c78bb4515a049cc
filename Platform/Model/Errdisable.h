#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: interfaces that are held down, by cause. An entry in a cause asks the agent to hold the interface
/// down; the agent lets it up again when it is in no cause any more.
namespace Errdisable {

/// Ordinals are part of the stored form.
enum class CauseGroupType : Vel::U32 { none = 0, interfaceCause = 1 };
/// "none", "interfaceCause"; any other value as "CauseGroupType(9)".
Vel::String stringValue( CauseGroupType type );

/// Which cause is shown when there are several. Ordinals are part of the stored form.
enum class CauseGroupPriority : Vel::U32 { normal = 0 };
/// "normal"; any other value as "CauseGroupPriority(9)".
Vel::String stringValue( CauseGroupPriority priority );

/// The interfaces that are held down for one cause. Kept across restarts. The owner of the cause writes the
/// entries, the library of causes the rest.
class CauseStatus final : public Vel::Entity {
   VEL_ENTITY( CauseStatus );
   explicit CauseStatus( const Vel::String & name ) : name_( name ) {}

   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::String, causeGroupName, onCauseGroupName );
   /// Since when, in seconds of the agent's clock. Written again, it overwrites.
   VEL_MAP( Wire::IntfId, double, intfStatus, onIntfStatus );
};

/// What is said about a cause. Written once by the library of causes; the same values every time.
class CauseGroup final : public Vel::Entity {
   VEL_ENTITY( CauseGroup );
   explicit CauseGroup( const Vel::String & name ) : name_( name ) {}

   VEL_PARAM( Vel::String, name );
   VEL_ATTR( Vel::String, causeName, onCauseName );
   /// A sentence for the operator.
   VEL_ATTR( Vel::String, description, onDescription );
   /// A word for tables, as the state of an interface that is held down.
   VEL_ATTR( Vel::String, statusText, onStatusText );
   VEL_ATTR( CauseGroupType, type, onType );
   VEL_ATTR( CauseGroupPriority, priority, onPriority );
   /// Whether the operator may configure the cause.
   VEL_ATTR( bool, configurable, onConfigurable );
   /// Whether interfaces come up again by themselves after a time.
   VEL_ATTR( bool, recoveryEnabled, onRecoveryEnabled );
   /// Whether new entries take effect.
   VEL_ATTR( bool, detectionEnabled, onDetectionEnabled );
   /// Whether the link itself is set down.
   VEL_ATTR( bool, linkDown, onLinkDown );
   /// Whether the operator is shown the cause.
   VEL_ATTR( bool, visible, onVisible );
};

} // namespace Errdisable
