#include "Platform/Maintenance/ErrdisableLib.h"

namespace ErrdisableLib {

Vel::String causeStatusPath( const Vel::String & cause ) { return "interface/errdisable/cause/" + cause; }
Vel::String causeGroupPath( const Vel::String & cause ) { return "interface/errdisable/causegroup/" + cause; }

void ErrdisableCauseGroupInit(
   const Vel::Ptr< Ledger::EntityManager > & entityManager, const Vel::String & cause, bool configurable,
   const Vel::String & description, bool recoveryEnabled, bool detectionEnabled, bool linkDown, bool visible,
   Errdisable::CauseGroupType type, Errdisable::CauseGroupPriority priority,
   const Vel::String & statusText ) {
   const auto status =
      Vel::ptrCast< Errdisable::CauseStatus >( entityManager->getEntity( causeStatusPath( cause ) ) );
   if ( status )
      status->causeGroupNameIs( cause );
   const auto group =
      Vel::ptrCast< Errdisable::CauseGroup >( entityManager->getEntity( causeGroupPath( cause ) ) );
   if ( !group )
      return;
   group->causeNameIs( cause );
   group->descriptionIs( description );
   group->statusTextIs( statusText );
   group->typeIs( type );
   group->priorityIs( priority );
   group->configurableIs( configurable );
   group->recoveryEnabledIs( recoveryEnabled );
   group->detectionEnabledIs( detectionEnabled );
   group->linkDownIs( linkDown );
   group->visibleIs( visible );
}

} // namespace ErrdisableLib
