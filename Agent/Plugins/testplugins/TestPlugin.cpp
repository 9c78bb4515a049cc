#include "Platform/Maintenance/PluginContext.h"
#include "Platform/Maintenance/PluginInterface.h"
#include "Platform/Maintenance/PluginLoader.h"
#include "Platform/Vel/Error.h"

#ifdef TEST_PLUGIN_OTHER
extern "C" const char maintPluginInterface[];
const char maintPluginInterface[] = MAINT_PLUGIN_INTERFACE_MARK "999999";
#elif defined TEST_PLUGIN_STALE
extern "C" const char maintPluginInterface[];
const char maintPluginInterface[] = MAINT_PLUGIN_INTERFACE_MARK MAINT_PLUGIN_TEXT( MAINT_PLUGIN_INTERFACE )
   MAINT_PLUGIN_HEADERS_MARK "0123456789abcdef.";
#else
MAINT_PLUGIN_DECLARE();
#endif

#ifdef TEST_PLUGIN_UNRESOLVED
extern void nobodyDefinesThis();
#endif

namespace {

class TestPlugin final : public Maintenance::PluginBase< Maintenance::PluginContext > {
 public:
   TestPlugin() {
      auto & loader = Maintenance::DefaultPluginLoader();
      loader.registerPlugin( TEST_PLUGIN_NAME, loader.name(), "", "", Maintenance::InitCaller( this ) );
   }
   void init( Maintenance::PluginContext * ) override {
#ifdef TEST_PLUGIN_REFUSING
      throw Vel::InternalException( "not today" );
#endif
#ifdef TEST_PLUGIN_UNRESOLVED
      nobodyDefinesThis();
#endif
   }
};

const TestPlugin plugin;

} // namespace
