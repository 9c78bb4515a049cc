#pragma once

#include "Agent/Plan/Judgement.h"
#include "Agent/Plan/Placing.h"
#include "Agent/Plan/Topology.h"

#include <functional>

/// Purpose: what would take which ways instead, when the unit and what is on its way out with other units is gone. Pure.
///
/// What leaves is counted where it can be: at the port or port-channel that does not work any more, or, if those stay and
/// a link upon them goes, at that link. It may go where the routes that led over it go then, and nowhere else; which part
/// of it belongs to which route nobody knows. What is in the way of links that go on, as a port of a bridge with others, may
/// go on with them. What no route moves is left to those who stand in for the unit. (What has no other way at all is
/// counted with the rest: it may be little.)
namespace Agent {

class Moves {
 public:
   /// The switch as it is; without what leaves with other units; and without the unit as well. All outlive it.
   Moves(
      const PlanFacts & facts, const Topology & present, const Topology & before, const Topology & after );
   Moves( const Moves & ) = delete;
   Moves & operator=( const Moves & ) = delete;

   /// What carries that which has to move, and what would carry it then.
   std::set< std::string > from() const { return namesOf( sources_ ); }
   std::set< std::string > to() const { return namesOf( targets_ ); }

   using Amount = std::function< double( const std::string & ) >;
   struct Part {
      std::set< std::string > from, to;
   };
   /// Those that together have more to move than all has room for to which they may move it, if the unit has a part in
   /// that. Nothing: it fits if it is shared out well.
   /// \param load    of those in from()
   /// \param room    of those in to(), for more than they carry
   /// \param relief  what a link that is taken away may leave on what goes on to work below it, as room for others or for
   ///                itself
   using Relief = std::function< double( const std::string & link, const std::string & below ) >;
   std::optional< Part > overfull( const Amount & load, const Amount & room, const Relief & relief ) const;
   /// What each of those in to() would get besides what it carries if each destination had the same part of what the links to it carry.
   /// Those that get nothing or that nobody can tell it of are left out.
   std::map< std::string, double > shared( const Amount & load ) const;

 private:
   /// A link that is lost, with where its traffic is counted; or one that is taken instead, with what carries it.
   struct Link {
      std::size_t node;
      std::vector< std::size_t > ends; ///< nodes of sources or targets
   };
   using Links = std::map< std::string, Link >;
   /// What is reached alike.
   struct Class {
      double destinations = 0; ///< 0: nobody knows how much of the traffic it has
      std::vector< std::pair< const Link *, double > > from; ///< with their parts of it
      std::vector< std::pair< const Link *, double > > to;
   };
   struct End {
      std::size_t node;
      bool counted = false;            ///< of a source: what it carries has to move
      std::set< std::string > staysOn; ///< of a source: what carries it before, and works after
   };
   using Ends = std::map< std::string, End >;

   void addRoutes( const DataPlane::RouteClass & routes );
   void addStandIns();
   void addStandIn( Class others, const std::string & interface, bool ours );
   void addDetours();
   void addClass( Class added, bool ours );
   const Link & lost( const std::string & link );
   const Link & taken( const std::string & link );
   End & source( const std::string & name );
   std::set< std::string > lowestRemoved( const std::string & link ) const;
   /// By node, whether it has to do with the unit at all.
   std::vector< bool > concerned() const;
   bool goes( const DataPlane::NextHop & hop ) const { return present_.works( hop ) && !after_.works( hop ); }
   static std::set< std::string > namesOf( const Ends & ends );

   const PlanFacts & facts_;
   const Topology & present_;
   const Topology & before_;
   const Topology & after_;
   Placing placing_;
   Ends sources_, targets_;
   Links lost_, taken_;
   std::vector< Class > classes_;
   std::vector< std::size_t > ours_;            ///< nodes of the classes that the unit moves
   std::set< std::size_t > oursOf_;             ///< nodes of the sources of these
   std::set< std::size_t > movedByRoutes_;      ///< nodes of sources
   std::map< std::size_t, std::string > names_; ///< of sources and targets
};

} // namespace Agent
