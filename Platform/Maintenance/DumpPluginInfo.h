#pragma once

#include "Platform/Vel/Declare.h"

namespace Maintenance {

class PluginContext;

/// Purpose: a plug-in's diagnostic text, on request.
/// Owner: the plug-in. The context it is registered with holds a plain pointer and forgets it when it is
/// destroyed.
class DumpPluginInfo : public Vel::Entity {
   VEL_ENTITY( DumpPluginInfo );
   explicit DumpPluginInfo( const Vel::String & name ) : name_( name ) {}
   ~DumpPluginInfo() override;
   VEL_PARAM( Vel::String, name );

   /// Writes the text to a file descriptor, which stays open and the caller's.
   virtual void dump( unsigned fd ) const = 0;

 private:
   friend class PluginContext;
   PluginContext * registeredWith_ = nullptr; ///< null: with none
};

} // namespace Maintenance
