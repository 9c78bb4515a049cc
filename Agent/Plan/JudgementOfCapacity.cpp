#include "Agent/Plan/Judging.h"
#include "Api/Values.h"

#include <algorithm>
#include <unordered_map>

/// Whether what remains can carry what is to be moved. Looked at twice: with what interfaces carry now, which decides, and
/// with what they seldom exceed, which warns.
namespace Agent {

using DataPlane::RoutedLink;

namespace {

std::vector< std::string > listOf( const std::set< std::string > & names ) {
   return { names.begin(), names.end() };
}

using Which = std::optional< PlanRates > PlanLoad::*;
using Direction = double PlanRates::*;
constexpr Direction directions[] = { &PlanRates::in, &PlanRates::out };

/// What is more than anything; sums of it are still exact to the bit.
constexpr double plenty = 1e15;

/// What interfaces carry and how much more there is room for; of what is not known, the least and the most that it may be.
class Room {
 public:
   Room( const Judging & judging, Which which ) : judging_( judging ), which_( which ) {
      for ( const PlanInterface & interface : judging.facts.interfaces )
         loads_.emplace( interface.name, &interface.load );
      for ( const auto & [name, load] : judging.facts.loads )
         loads_.emplace( name, &load );
   }

   /// Of a port-channel of which nobody has counted, what its members carry.
   std::optional< PlanRates > load( const std::string & name ) const {
      const std::optional< PlanRates > own = counted( name );
      const RoutedLink * const link = judging_.present.find( name );
      if ( own || !link || !link->aggregate )
         return own;
      PlanRates sum;
      for ( const std::string & member : judging_.present.members( *link ) ) {
         const auto part = counted( member );
         if ( !part )
            return std::nullopt;
         sum.in += part->in;
         sum.out += part->out;
      }
      return sum;
   }
   std::optional< double > speed( const std::string & name ) const {
      return judging_.after.speed( name, judging_.facts.speeds );
   }
   bool knows( const std::string & name ) const { return load( name ) && speed( name ); }

   double least( const std::string & name, Direction direction ) const {
      return load( name ).value_or( PlanRates() ).*direction;
   }
   double most( const std::string & name, Direction direction ) const {
      return load( name ).value_or( PlanRates{ plenty, plenty } ).*direction;
   }
   double leastLeft( const std::string & name, Direction direction ) const {
      return knows( name ) ? mostLeft( name, direction ) : 0;
   }
   double mostLeft( const std::string & name, Direction direction ) const {
      return std::max( 0.0, speed( name ).value_or( plenty ) - least( name, direction ) );
   }

 private:
   std::optional< PlanRates > counted( const std::string & name ) const {
      const auto at = loads_.find( name );
      return at == loads_.end() ? std::nullopt : at->second->*which_;
   }

   const Judging & judging_;
   Which which_;
   std::unordered_map< std::string, const PlanLoad * > loads_;
};

/// Of rates: what is moved, and the room that there is for it.
struct Missing {
   PlanRates moved, left;
};

bool exceeds( const PlanRates & a, const PlanRates & b ) { return a.in > b.in || a.out > b.out; }

std::string rates( const PlanRates & rates ) {
   return Api::rateText( rates.in ) + " in and " + Api::rateText( rates.out ) + " out";
}

std::vector< std::pair< std::string, double > > numbersOf( const Missing & missing ) {
   return {
      { "moved-in-bps", missing.moved.in },
      { "moved-out-bps", missing.moved.out },
      { "free-in-bps", missing.left.in },
      { "free-out-bps", missing.left.out } };
}

/// What cannot be moved however it is shared out, in one direction or the other; nothing: that cannot be said.
std::optional< Moves::Part > tooMuch( const Judging & judging, const Room & room ) {
   for ( const Direction direction : directions )
      if (
         auto part = judging.moves.overfull(
            [&]( const auto & name ) { return room.least( name, direction ); },
            [&]( const auto & name ) { return room.mostLeft( name, direction ); },
            [&]( const auto & link, const auto & below ) {
               return std::min( room.most( link, direction ), room.least( below, direction ) );
            } ) )
         return part;
   return std::nullopt;
}

/// What might be too much, for all that is known.
std::optional< Moves::Part > perhapsTooMuch( const Judging & judging, const Room & room ) {
   for ( const Direction direction : directions )
      if (
         auto part = judging.moves.overfull(
            [&]( const auto & name ) { return room.most( name, direction ); },
            [&]( const auto & name ) { return room.leastLeft( name, direction ); },
            [&]( const auto & link, const auto & ) { return room.least( link, direction ); } ) )
         return part;
   return std::nullopt;
}

Missing missingOf( const Moves::Part & part, const Room & room ) {
   Missing result;
   for ( const Direction direction : directions ) {
      for ( const std::string & name : part.from )
         result.moved.*direction += room.least( name, direction );
      for ( const std::string & name : part.to )
         result.left.*direction += room.mostLeft( name, direction );
   }
   return result;
}

/// "500 Mbps in and 500 Mbps out are to be moved from et1, and et2 has 400 Mbps in and 400 Mbps out left"
std::string
missingText( const Judging & judging, const Moves::Part & part, const Missing & missing, const Room & room ) {
   const auto known = [&]( const std::string & name ) { return room.load( name ).has_value(); };
   const bool all = std::all_of( part.from.begin(), part.from.end(), known );
   const bool exact = std::all_of( part.to.begin(), part.to.end(), known );
   const std::string leaving = judging.leavingText( part.from );
   return ( all ? "" : "at least " ) + rates( missing.moved ) + " are to be moved from " +
          planList( listOf( part.from ) ) + ", and " + planList( listOf( part.to ) ) +
          ( part.to.size() == 1 ? " has " : " have " ) + ( exact ? "" : "no more than " ) +
          rates( missing.left ) + " left" + ( leaving.empty() ? "" : "; " + leaving );
}

/// The first that would carry more than it can if routes share traffic as they do now.
std::optional< std::pair< std::string, Missing > > overflowing( const Judging & judging, const Room & room ) {
   std::map< std::string, PlanRates > gets;
   for ( const Direction direction : directions )
      for ( const auto & [name, amount] :
            judging.moves.shared( [&]( const auto & source ) { return room.least( source, direction ); } ) )
         gets[name].*direction = amount;
   for ( const auto & [name, more] : gets ) {
      const PlanRates left{ room.mostLeft( name, &PlanRates::in ), room.mostLeft( name, &PlanRates::out ) };
      // As much as there is room for fits, but for errors of the arithmetic.
      if ( exceeds( more, { left.in + 1, left.out + 1 } ) )
         return { { name, { more, left } } };
   }
   return std::nullopt;
}

/// A port-channel that loses members has to carry on with the others what it carries.
void judgePortChannel( Judging & judging, const RoutedLink & link ) {
   std::set< std::string > lost;
   for ( const std::string & member : judging.present.members( link ) )
      if ( !judging.after.works( member ) )
         lost.insert( member );
   const Room now( judging, &PlanLoad::current ), high( judging, &PlanLoad::high );
   const auto speed = now.speed( link.name );
   const auto load = now.load( link.name ), often = high.load( link.name );
   if ( !load || !speed ) {
      judging.add( PlanCode::unknownCapacity, PlanSeverity::warning, listOf( lost ) ).text =
         "whether " + link.name + " can do without " + planList( listOf( lost ) ) +
         " is not known: " + ( load ? "the speed of its members is not" : "what it carries is not" );
      return;
   }
   const PlanRates room{ *speed, *speed };
   const bool blocks = exceeds( *load, room );
   if ( !blocks && !( often && exceeds( *often, room ) ) )
      return;
   PlanFinding & finding = judging.add(
      PlanCode::capacity, blocks ? PlanSeverity::blocking : PlanSeverity::warning, listOf( lost ) );
   const std::string leaving = judging.leavingText( lost );
   finding.text = ( blocks ? "" : "now it fits, but going by the last ten minutes " ) + link.name +
                  " carries " + rates( blocks ? *load : *often ) + ", and without " +
                  planList( finding.interfaces ) + " has " + Api::rateText( *speed ) +
                  ( leaving.empty() ? "" : "; " + leaving );
   finding.numbers = numbersOf( { blocks ? *load : *often, room } );
}

} // namespace

void Judging::judgeCapacity() {
   for ( const RoutedLink & link : facts.routes->links )
      if ( losesMembers( link ) )
         judgePortChannel( *this, link );
   const Room now( *this, &PlanLoad::current ), high( *this, &PlanLoad::high );
   if ( const auto part = tooMuch( *this, now ) ) {
      const Missing missing = missingOf( *part, now );
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::blocking, listOf( part->from ) );
      finding.text = missingText( *this, *part, missing, now );
      finding.numbers = numbersOf( missing );
      return;
   }
   if ( const auto part = perhapsTooMuch( *this, now ) ) {
      std::set< std::string > unknown;
      std::copy_if(
         part->from.begin(), part->from.end(), std::inserter( unknown, unknown.end() ),
         [&]( const auto & name ) { return !now.load( name ); } );
      std::copy_if(
         part->to.begin(), part->to.end(), std::inserter( unknown, unknown.end() ),
         [&]( const auto & name ) { return !now.knows( name ); } );
      PlanFinding & finding = add( PlanCode::unknownCapacity, PlanSeverity::warning, listOf( part->from ) );
      finding.text = "whether " + planList( listOf( part->to ) ) + " can carry what " +
                     planList( listOf( part->from ) ) + ( part->from.size() == 1 ? " carries" : " carry" ) +
                     " is not known: the rate or the speed of " + planList( listOf( unknown ) ) + " is not";
   } else if ( const auto overflow = overflowing( *this, now ) ) {
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::warning, { overflow->first } );
      finding.text = "as routes share it, " + overflow->first + " would have to carry " +
                     rates( overflow->second.moved ) + " more, and has " + rates( overflow->second.left ) +
                     " left";
      finding.numbers = numbersOf( overflow->second );
   } else if ( const auto often = tooMuch( *this, high ) ) {
      const Missing missing = missingOf( *often, high );
      PlanFinding & finding = add( PlanCode::capacity, PlanSeverity::warning, listOf( often->from ) );
      finding.text =
         "now it fits, but going by the last ten minutes " + missingText( *this, *often, missing, high );
      finding.numbers = numbersOf( missing );
   }
}

} // namespace Agent
