#include "Platform/Model/Maintenance.h"

namespace Maintenance {

namespace {
const Vel::TypeRegistration< MonIntfStatusDir > monIntfStatusDirType;
}

Vel::String stringValue( ProfileChangeCause cause ) {
   switch ( cause ) {
   case ProfileChangeCause::none:
      return "none";
   case ProfileChangeCause::membership:
      return "membership";
   case ProfileChangeCause::selection:
      return "selection";
   }
   return Vel::text( "ProfileChangeCause(", Vel::U32( cause ), ")" );
}

const Profile::ProfileKey & MemberToGroup::selectedProfileKey( Profile::ProfileType type ) const {
   static const Profile::ProfileKey unset;
   const Profile::ProfileKey * const key = selectedProfile( type );
   return key ? *key : unset;
}

Vel::String stringValue( MonIntfState state ) {
   switch ( state ) {
   case monIntfStateIdle:
      return "monIntfStateIdle";
   case monIntfStateEnterMaint:
      return "monIntfStateEnterMaint";
   case monIntfStateUnderMaint:
      return "monIntfStateUnderMaint";
   case monIntfStateStopped:
      return "monIntfStateStopped";
   }
   return Vel::text( "MonIntfState(", Vel::U32( state ), ")" );
}

} // namespace Maintenance
