#pragma once

#include "Agent/Model/LinkJournal.h"
#include "DataPlane/Switch.h"

#include <functional>
#include <map>
#include <set>

/// Purpose: what others do to links that we hold or watch. It is told and left as it is: whoever sets a link by hand
/// during a maintenance has a reason, and two who set it in turns serve nobody.
/// Owner: the executor, which tells our own doing from that of others.
///
/// What counts is whether a link is set up, not whether it has a carrier. A link has drifted:
///  - raised: we hold it down, and somebody else has set it up; until it is set down or we let go of it.
///  - lowered: somebody else has set it down while a unit of its is not normal, be it watched, released, or held and
///    raised before; until it is set up, it is gone, or all its units are normal and nobody expects anything of it.
/// So a link that was down when the maintenance began, and has been since, has not drifted; nor has one that is set down
/// while all its units are normal.
namespace Agent {

enum class Drift { none, raised, lowered };
/// "none", "raised", "lowered".
const char * stringValue( Drift drift );

class Drifts {
 public:
   struct Hooks {
      /// Whether any unit of a link is not normal.
      std::function< bool( const Wire::IntfId & ) > isUnderWay;
      /// Takes a line for the agent's log; called once at each change.
      std::function< void( const Vel::String & line ) > noted;
   };

   /// All given. The journal keeps who is lowered over restarts.
   Drifts( Vel::Ptr< LinkJournal > journal, Hooks hooks );
   Drifts( const Drifts & ) = delete;
   Drifts & operator=( const Drifts & ) = delete;

   /// After a restart: forgets what is kept of links that are not `stillDown`.
   void start( const std::function< bool( const LoweredLink & ) > & stillDown );
   /// After a restart: a link that is down and was watched before. Units are looked at when the turn ends.
   void foundDown( const DataPlane::Link & link, const Vel::String & bootId );
   /// Somebody else has set the link up or down.
   void setByOthers( const DataPlane::Link & link, const Vel::String & bootId, bool held );
   /// We do not hold the link any more, or are about to set it up.
   void letGo( const Wire::IntfId & intf );
   void linkDel( const Wire::IntfId & intf );
   /// Called before each commit: units may have become normal.
   void turnEnds();

   Drift of( const Wire::IntfId & intf ) const;

 private:
   /// A link that is down in this turn. Whether it stays is known when the turn ends: a link that is deleted is set down
   /// first.
   struct Down {
      Vel::U32 ifIndex;
      Vel::String bootId;
      bool wasRaised;
   };
   void lower( const Wire::IntfId & intf, const Down & down );
   void note( const Wire::IntfId & intf, const char * what ) const;

   Vel::Ptr< LinkJournal > journal_;
   Hooks hooks_;
   std::set< Wire::IntfId > raised_;
   std::map< Wire::IntfId, Down > down_; ///< until the turn ends
};

} // namespace Agent
