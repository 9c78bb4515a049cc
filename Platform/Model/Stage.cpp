#include "Platform/Model/Stage.h"

namespace Stage {

namespace {
const Vel::TypeRegistration< ProgressDir > progressDirType;
const Vel::TypeRegistration< CompletionStatusDir > completionStatusDirType;
const Vel::TypeRegistration< AgentStatus > agentStatusType;
const Vel::TypeRegistration< AgentConfig > agentConfigType;
} // namespace

Vel::String stringValue( const AgentStatusKey & key ) {
   return Vel::text( key.agentStatusName, "/", key.stage, "/", key.instanceName );
}

} // namespace Stage

void Vel::Codec< Stage::AgentStatusKey >::write( ByteWriter & w, const Stage::AgentStatusKey & key ) {
   Codec< String >::write( w, key.agentStatusName );
   Codec< String >::write( w, key.stage );
   Codec< String >::write( w, key.instanceName );
}

void Vel::Codec< Stage::AgentStatusKey >::read( ByteReader & r, Stage::AgentStatusKey & key ) {
   Codec< String >::read( r, key.agentStatusName );
   Codec< String >::read( r, key.stage );
   Codec< String >::read( r, key.instanceName );
}
