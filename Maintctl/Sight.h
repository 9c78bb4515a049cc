#pragma once

#include "Api/Shapes.h"
#include "Maintctl/Invocation.h"
#include "Maintctl/Picture.h"
#include "Maintctl/Remote.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Maintctl {

/// Purpose: looks at the agent and makes pictures of what it says; keeps in mind the rates that it has seen.
/// Owner: Waiting, Watching.
///
/// 1. What the agent works out (sentences, reasons, ends) is shown in its words. One that does not work them out is
///    drawn by what it does say.
/// 2. Curves begin with the samples that the agent has kept, where it keeps any.
/// 3. Of units, interfaces are asked for only where they are shown, and only once for each sample that the agent takes,
///    unless the unit says that something has happened.
class Sight {
 public:
   struct Subject {
      Show::What what = Show::What::units; ///< units, unit, interfaces or interface
      std::string name;
      bool pressing = false; ///< of a unit: only what it waits for, and no title
   };
   /// \param step  seconds between two points of a curve
   Sight( Subject subject, Remote & remote, double step = Curve::leastStep );

   /// One look at all that is to be seen. Throws Failure and Api::Error as Remote and reading do; then nothing has been
   /// seen.
   void look();
   /// The same, of a unit that somebody has looked at already.
   void look( const Api::Unit & unit );
   /// The agent was away: what was missed is asked for again.
   void missed();

   /// Of the last look.
   Picture picture() const;
   /// Asks for the samples of those interfaces that stand in the first so many rows of the picture and whose curves have
   /// not begun with them yet. Whether that has given any. Throws Failure: interrupted, notReachable.
   bool fill( std::size_t rows );

   std::optional< double > clock() const { return clock_; }
   const std::vector< Api::Unit > & units() const { return units_; }
   const std::vector< Api::Interface > & interfaces() const { return interfaces_; }
   /// Of its profile.
   std::optional< double > thresholdOf( const Api::Interface & intf ) const;

 private:
   using Members = std::vector< const Api::Interface * >;

   void see( std::optional< double > clock, std::vector< Api::Unit > units );
   void see( std::vector< Api::Interface > interfaces );
   void see( std::optional< double > clock, std::vector< Api::Interface > interfaces );
   std::vector< Api::Interface > interfacesOf( const std::vector< Api::Unit > & units );
   bool fill( const std::vector< std::string > & names );
   void learnProfiles( std::optional< double > clock, const std::vector< Api::Interface > & interfaces );
   std::map< std::string, Members > membersOfUnits() const;
   std::vector< IntfPicture >
   picturesOf( const Members & members, const Api::Unit * unit, std::size_t mostRows ) const;
   UnitPicture pictureOf( const Api::Unit & unit, const Members & members, std::size_t mostRows ) const;
   IntfPicture pictureOf( const Api::Interface & intf, const Api::Unit * unit ) const;

   const Subject subject_;
   Remote & remote_;
   const double step_;

   std::vector< Api::Unit > units_;
   std::vector< Api::Interface > interfaces_;
   std::optional< double > clock_;
   std::optional< double > seenAt_;                              ///< interfaces_, by the same clock
   std::map< std::string, std::optional< double > > thresholds_; ///< of profiles, by name
   std::optional< double > thresholdsAt_;                        ///< by the agent's clock
   std::map< std::string, Curve > curves_;                       ///< of interfaces, by name
   std::set< std::string > filled_;                              ///< whose curves need no samples any more
};

} // namespace Maintctl
