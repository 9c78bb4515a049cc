#include "Agent/Plan/ProfileWhy.h"

#include <gtest/gtest.h>

namespace Agent {

TEST( ProfileWhy, namesTheProfileInForceFirstAndTheRuleByWhichItIs ) {
   struct Row {
      std::set< std::string > groups;
      const char * why;
   };
   Config::Configuration configuration;
   const auto profile = [&]( const char * name, unsigned bps, unsigned seconds ) {
      configuration.profiles[name].threshold = Config::Rate::fromBps( bps );
      configuration.profiles[name].loadInterval = Config::Duration::fromSeconds( seconds );
   };
   profile( "fast", 5000, 10 );
   profile( "long", 5000, 60 );
   profile( "same", 5000, 10 );
   profile( "watch", 1000, 10 );
   for ( const char * name : { "v", "w", "x", "y" } )
      profile( name, 9000, 10 );
   configuration.defaultProfile = "fast";
   for ( const auto & [group, named] : std::vector< std::pair< const char *, const char * > >{
            { "fast1", "fast" },
            { "long1", "long" },
            { "same1", "same" },
            { "watch1", "watch" },
            { "v1", "v" },
            { "w1", "w" },
            { "x1", "x" },
            { "y1", "y" } } )
      configuration.groups[group].profile = named;
   for ( const char * group : { "none1", "none2" } )
      configuration.groups[group];
   const std::vector< Row > rows = {
      { {}, "" },
      { { "unknown" }, "" },
      { { "none1" }, "the default, as group none1 names none" },
      { { "none1", "none2" }, "the default, as groups none1 and none2 name none" },
      { { "fast1" }, "named by group fast1" },
      { { "fast1", "none1" }, "named by group fast1, and the default of group none1" },
      { { "fast1", "watch1" },
        "the strictest of watch (group watch1) and fast (group fast1): lowest threshold" },
      { { "long1", "none1" },
        "the strictest of long (group long1) and fast (the default of group none1): longest load interval" },
      { { "none1", "same1" },
        "the strictest of same (group same1) and fast (the default of group none1): named, and not the "
        "default" },
      { { "fast1", "same1" }, "the strictest of fast (group fast1) and same (group same1): first by name" },
      { { "watch1", "v1", "w1", "x1", "y1" },
        "the strictest of watch (group watch1), v (group v1), w (group w1) and 2 more: lowest threshold" } };
   for ( const Row & row : rows )
      EXPECT_EQ( row.why, profileWhy( configuration, row.groups ) );
}

} // namespace Agent
