#pragma once

#include "Platform/Ledger/EntityManager.h"
#include "Platform/Model/Errdisable.h"

/// Purpose: setting up a cause for which interfaces are held down.
namespace ErrdisableLib {

/// The paths of a cause: "interface/errdisable/cause/CAUSE" and "interface/errdisable/causegroup/CAUSE".
Vel::String causeStatusPath( const Vel::String & cause );
Vel::String causeGroupPath( const Vel::String & cause );

/// Writes what is to be said about a cause into its two entities. Whoever defines the cause has created them;
/// one that is absent stays absent. The interfaces that are held down for the cause are left as they are, so
/// it may be called again, also while interfaces are down. For the meaning of the arguments see
/// Errdisable::CauseGroup.
void ErrdisableCauseGroupInit(
   const Vel::Ptr< Ledger::EntityManager > & entityManager, const Vel::String & cause, bool configurable,
   const Vel::String & description, bool recoveryEnabled, bool detectionEnabled, bool linkDown, bool visible,
   Errdisable::CauseGroupType type, Errdisable::CauseGroupPriority priority, const Vel::String & statusText );

} // namespace ErrdisableLib
