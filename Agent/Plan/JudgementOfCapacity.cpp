#include "Agent/Plan/Judging.h"
#include "Api/Values.h"

#include <algorithm>
#include <numeric>

/// Whether what remains can carry what is to be moved. Looked at twice: with what interfaces carry now, which decides, and
/// with what they seldom exceed, which warns.
namespace Agent {

using DataPlane::EqualHops;
using DataPlane::NextHop;
using DataPlane::RoutedLink;

namespace {

std::vector< std::string > listOf( const std::set< std::string > & names ) {
   return { names.begin(), names.end() };
}

using Which = std::optional< PlanRates > PlanLoad::*;

/// What interfaces carry and how much more there is room for. Knows what it was asked for in vain.
class Room {
 public:
   Room( const Judging & judging, Which which ) : judging_( judging ), which_( which ) {
      for ( const PlanInterface & interface : judging.facts.interfaces )
         loads_.emplace( interface.name, &interface.load );
      for ( const auto & [name, load] : judging.facts.loads )
         loads_.emplace( name, &load );
   }

   std::optional< PlanRates > load( const std::string & name ) {
      const auto at = loads_.find( name );
      return note( at == loads_.end() ? std::nullopt : at->second->*which_, name );
   }
   PlanRates sum( const std::set< std::string > & names ) {
      PlanRates result;
      for ( const std::string & name : names )
         if ( const auto rates = load( name ) ) {
            result.in += rates->in;
            result.out += rates->out;
         }
      return result;
   }
   std::optional< double > speed( const std::string & name ) {
      return note( judging_.after.speed( name ), name );
   }
   /// What fits in besides, each direction; nothing where one does not know.
   std::optional< PlanRates > left( const std::string & name ) {
      const auto speed = this->speed( name );
      const auto rates = load( name );
      if ( !speed || !rates )
         return std::nullopt;
      return PlanRates{ std::max( 0.0, *speed - rates->in ), std::max( 0.0, *speed - rates->out ) };
   }
   const std::set< std::string > & unknown() const { return unknown_; }

 private:
   template < class Value >
   std::optional< Value > note( std::optional< Value > value, const std::string & name ) {
      if ( !value )
         unknown_.insert( name );
      return value;
   }

   const Judging & judging_;
   Which which_;
   std::map< std::string, const PlanLoad *, std::less<> > loads_;
   std::set< std::string > unknown_;
};

/// What would not fit, and whether that is for sure.
enum class Fits { yes, no, unknown };

struct Verdict {
   Fits fits = Fits::yes;
   PlanRates moved, left;
};

bool exceeds( const PlanRates & a, const PlanRates & b ) { return a.in > b.in || a.out > b.out; }

std::string rates( const PlanRates & rates ) {
   return Api::rateText( rates.in ) + " in and " + Api::rateText( rates.out ) + " out";
}

Verdict ofMove( const Judging::Move & move, Room & room ) {
   Verdict verdict;
   verdict.moved = room.sum( move.from );
   for ( const std::string & name : move.to )
      if ( const auto left = room.left( name ) ) {
         verdict.left.in += left->in;
         verdict.left.out += left->out;
      }
   // What is moved and not known can only be more; what is left and not known as well.
   const bool moreMoved = std::any_of(
      move.from.begin(), move.from.end(), [&]( const auto & name ) { return room.unknown().count( name ); } );
   const bool moreLeft = std::any_of(
      move.to.begin(), move.to.end(), [&]( const auto & name ) { return room.unknown().count( name ); } );
   if ( exceeds( verdict.moved, verdict.left ) )
      verdict.fits = moreLeft ? Fits::unknown : Fits::no;
   else
      verdict.fits = moreMoved ? Fits::unknown : Fits::yes;
   return verdict;
}

std::vector< std::pair< std::string, double > > numbersOf( const Verdict & verdict ) {
   return {
      { "moved-in-bps", verdict.moved.in },
      { "moved-out-bps", verdict.moved.out },
      { "free-in-bps", verdict.left.in },
      { "free-out-bps", verdict.left.out } };
}

/// The first that would carry more than it can if routes share traffic as they do now.
std::optional< std::pair< std::string, Verdict > > overflowing( const Judging::Move & move, Room & room ) {
   const double all =
      std::accumulate( move.shares.begin(), move.shares.end(), 0.0, []( double sum, const auto & share ) {
         return sum + share.second;
      } );
   const PlanRates moved = room.sum( move.from );
   for ( const auto & [name, share] : move.shares ) {
      const auto left = room.left( name );
      const PlanRates part{ moved.in * share / all, moved.out * share / all };
      if ( left && exceeds( part, *left ) )
         return { { name, { Fits::no, part, *left } } };
   }
   return std::nullopt;
}

/// A port-channel that loses members has to carry on with the others what it carries.
void judgePortChannel( Judging & judging, const RoutedLink & link, const std::vector< std::string > & lost ) {
   Room room( judging, &PlanLoad::current );
   const auto load = room.load( link.name );
   const auto speed = room.speed( link.name );
   if ( !load || !speed ) {
      judging.add( PlanCode::unknownCapacity, PlanSeverity::warning, lost ).text =
         "whether " + link.name + " can do without " + planList( lost ) +
         " is not known: " + ( load ? "the speed of its members is not" : "what it carries is not" );
      return;
   }
   if ( !exceeds( *load, { *speed, *speed } ) )
      return;
   PlanFinding & finding = judging.add( PlanCode::capacity, PlanSeverity::blocking, lost );
   finding.text = link.name + " carries " + rates( *load ) + ", and without " + planList( lost ) + " has " +
                  Api::rateText( *speed );
   finding.numbers = numbersOf( { Fits::no, *load, { *speed, *speed } } );
}

} // namespace

Judging::Move Judging::move() const {
   Move result;
   for ( const DataPlane::RouteClass & routes : facts.routes.classes ) {
      const EqualHops * const now = before.taken( routes.choices );
      const EqualHops * const then = after.taken( routes.choices );
      if ( !now || !then )
         continue;
      std::set< std::string > from;
      for ( const NextHop & hop : *now )
         if ( before.works( hop ) && !after.works( hop ) )
            from.merge( before.carriers( hop.link ) );
      if ( from.empty() )
         continue;
      result.from.merge( from );
      double weights = 0;
      for ( const NextHop & hop : *then )
         weights += after.works( hop ) ? hop.weight : 0;
      for ( const NextHop & hop : *then ) {
         if ( !after.works( hop ) )
            continue;
         const auto carriers = after.carriers( hop.link );
         for ( const std::string & carrier : carriers )
            result.shares[carrier] += static_cast< double >( routes.destinations ) * hop.weight / weights /
                                      static_cast< double >( carriers.size() );
         result.to.insert( carriers.begin(), carriers.end() );
      }
   }
   if ( !result.from.empty() )
      return result;
   // Where routes say nothing, the operator may have said who stands in for whom.
   for ( const PlanRedundancy & group : facts.redundancy )
      for ( const std::string & other : group.others )
         result.to.merge( after.carriers( other ) );
   for ( const PlanInterface & interface : facts.interfaces )
      if ( interface.leaves && !result.to.empty() )
         result.from.merge( before.carriers( interface.name ) );
   return result;
}

void Judging::judgeCapacity() {
   for ( const RoutedLink & link : facts.routes.links ) {
      if ( !link.aggregate || !after.works( link.name ) )
         continue;
      std::vector< std::string > lost;
      for ( const std::string & member : before.members( link ) )
         if ( after.removed( member ) )
            lost.push_back( member );
      if ( !lost.empty() )
         judgePortChannel( *this, link, lost );
   }
   const Move move = this->move();
   if ( move.from.empty() )
      return;
   Room now( *this, &PlanLoad::current ), high( *this, &PlanLoad::high );
   const Verdict verdict = ofMove( move, now );
   const std::vector< std::string > from = listOf( move.from ), to = listOf( move.to );
   if ( verdict.fits == Fits::no ) {
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::blocking, from );
      finding.text = rates( verdict.moved ) + " are to be moved from " + planList( from ) + ", and " +
                     planList( to ) + ( to.size() == 1 ? " has " : " have " ) + rates( verdict.left ) +
                     " left";
      finding.numbers = numbersOf( verdict );
   } else if ( verdict.fits == Fits::unknown ) {
      PlanFinding & finding = add( PlanCode::unknownCapacity, PlanSeverity::warning, from );
      finding.text = "whether " + planList( to ) + " can carry what " + planList( from ) +
                     ( from.size() == 1 ? " carries" : " carry" ) +
                     " is not known: the rate or the speed of " + planList( listOf( now.unknown() ) ) +
                     " is not";
   } else if ( const auto overflow = overflowing( move, now ) ) {
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::warning, { overflow->first } );
      finding.text = "as routes share it, " + overflow->first + " would have to carry " +
                     rates( overflow->second.moved ) + " more, and has " + rates( overflow->second.left ) +
                     " left";
      finding.numbers = numbersOf( overflow->second );
   } else if ( const Verdict often = ofMove( move, high ); often.fits == Fits::no ) {
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::warning, from );
      finding.text = "now it fits, but going by the last ten minutes " + rates( often.moved ) +
                     " are to be moved from " + planList( from ) + ", and " + planList( to ) +
                     ( to.size() == 1 ? " has " : " have " ) + rates( often.left ) + " left";
      finding.numbers = numbersOf( often );
   }
}

} // namespace Agent
