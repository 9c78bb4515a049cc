#pragma once

#include "Config/Configuration.h"
#include "Config/Values.h"

namespace Config {

/// Purpose: makes a configuration of the tree of all files together.
/// Owner: load() or parse().
///
/// What is wrong is reported and left out, and reading goes on; a name whose definition is wrong still counts as
/// defined, so that one mistake is one error.
class Reader {
 public:
   explicit Reader( Diagnostics & diagnostics ) : diagnostics_( diagnostics ), values_( diagnostics ) {}

   /// Checks the version that one file states. Missing is an error if it is required.
   void version( const Node & root, bool required );

   /// \param root   a map
   /// \param start  of the main file, where errors about missing top-level keys are reported
   Configuration read( const Node & root, Place start );

 private:
   void profiles( const Node & node );
   void profile( const Node & node, Profile & profile );
   std::optional< std::string > profileReference( const Node & node );
   void groups( const Node & node );
   void group( const Node & node, Group & group );
   std::set< std::string > interfaces( const Node & node );
   VlanSet vlans( const Node & node );
   void units( const Node & node );
   void unit( const Node & node, Unit & unit );

   void stages( const Node & node );
   void stage( const Node & node, CommandStage & stage );
   Command command( const Node & node );
   /// A list of stages, and whether all of it could be read, so that one mistake in it is one error.
   struct ReadStages {
      StageList list = defaultStages();
      bool good = true;
   };
   ReadStages stageList( const Node & node, const ReadStages & otherwise );
   /// \param place  of the list, or of the unit that has none of its own
   void checkWayBack( const ReadStages & enter, const ReadStages & exit, Place place );
   void listen( const Node & node );

   void hooks( const Node & node );
   void hook( const Node & node, Hook & hook );
   std::set< Moment > moments( const Node & node );
   std::set< std::string > hookUnits( const Node & node );
   Command wordsOfCommand( const Node & node );

   std::optional< unsigned > wholeNumber( const Node & node, unsigned least, unsigned most );
   void redundancyGroups( const Node & node );
   void redundancyGroup( const Node & node, RedundancyGroup & group );
   void simulatedRoutes( const Node & node );
   bool simulatedRoute( const Node & node, SimulatedRoute & route );

   void simulated( const Node & node );
   void ports( const Node & node );
   void traffic( const Node & node, SimulatedPort & port );
   bool segment( const Node & node, TrafficSegment & segment );
   void portChannels( const Node & node );
   void simulatedVlans( const Node & node );
   void vlanMembers( const Node & node, SimulatedVlan & vlan );
   bool isNewInterface( const std::string & name, Place place );

   Diagnostics & diagnostics_;
   Values values_;
   Configuration configuration_;
   // Whether the definitions could be read, so that a name that is not among them is known to be wrong.
   bool profilesKnown_ = false;
   bool groupsKnown_ = true;
   bool unitsKnown_ = true;
   bool stagesKnown_ = true;
   ReadStages enter_, exit_; ///< of units that have no lists of their own
   bool portsKnown_ = true;
   bool portChannelsKnown_ = true;
   // Of the simulated switch, with the place of each.
   std::map< std::string, Place > simulatedNames_;
   std::map< std::string, Place > portChannelMembers_;
   std::map< std::string, Place > vlanCandidates_; ///< ports and port-channels
};

} // namespace Config
