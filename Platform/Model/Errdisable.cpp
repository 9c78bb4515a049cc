#include "Platform/Model/Errdisable.h"

namespace Errdisable {

namespace {
const Vel::TypeRegistration< CauseStatus > causeStatusType;
const Vel::TypeRegistration< CauseGroup > causeGroupType;
} // namespace

Vel::String stringValue( CauseGroupType type ) {
   switch ( type ) {
   case CauseGroupType::none:
      return "none";
   case CauseGroupType::interfaceCause:
      return "interfaceCause";
   }
   return Vel::text( "CauseGroupType(", Vel::U32( type ), ")" );
}

Vel::String stringValue( CauseGroupPriority priority ) {
   switch ( priority ) {
   case CauseGroupPriority::normal:
      return "normal";
   }
   return Vel::text( "CauseGroupPriority(", Vel::U32( priority ), ")" );
}

} // namespace Errdisable
