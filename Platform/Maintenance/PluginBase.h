#pragma once

/// Purpose: what a plug-in is to the agent that loads it.
namespace Maintenance {

class PluginLoader;

/// What a loader knows of a plug-in. Leaves its loader when it is destroyed, so a library that is unloaded
/// leaves nothing behind.
class PluginObject {
 public:
   PluginObject( const PluginObject & ) = delete;
   PluginObject & operator=( const PluginObject & ) = delete;

 protected:
   PluginObject() = default;
   virtual ~PluginObject();

 private:
   friend class PluginLoader;
   PluginLoader * loader_ = nullptr; ///< null: not registered
};

/// Base of a plug-in that is initialised with a Context. The plug-in's library defines one static object of
/// it, whose constructor registers it with a loader.
template < class Context >
class PluginBase : public PluginObject {
 public:
   /// Begins the plug-in's work. Called once, from the event loop, after the library is loaded. Throws
   /// Vel::Exception if the plug-in cannot work with this context. The context lives longer than the
   /// plug-in's work.
   virtual void init( Context * context ) = 0;
};

} // namespace Maintenance
