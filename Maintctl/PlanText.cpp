#include "Maintctl/PlanText.h"

#include "Maintctl/Table.h"
#include "Maintctl/Text.h"

#include <algorithm>

namespace Maintctl {

namespace {

constexpr auto right = Table::Align::right;

std::string actionText( const Api::PlannedInterface & interface ) {
   if ( interface.notWatched )
      return "not watched: " + *interface.notWatched;
   if ( interface.action == "shut-when-drained" )
      return "shut when drained";
   if ( interface.action == "shut-at-latest" )
      return "shut when drained, after " + spanText( interface.shutdownMaxDelaySeconds.value_or( 0 ) ) +
             " at the latest";
   return interface.action;
}

/// Whether too little is known for what is called the rates of the last ten minutes.
bool isKnownBriefly( const Api::PlannedInterface & interface ) {
   constexpr double enough = 540; // seconds
   return interface.highKnownSeconds.value_or( enough ) < enough &&
          ( interface.highInBps || interface.highOutBps );
}

std::string profileText( const Api::PlannedInterface & interface ) {
   if ( !interface.profile )
      return "";
   return *interface.profile + ( interface.profileWhy ? ": " + *interface.profileWhy : "" );
}

} // namespace

std::string findingText( const Api::Finding & finding ) { return finding.severity + ": " + finding.text; }

std::string planText( const Api::Plan & plan, std::size_t room ) {
   std::string text =
      plan.unit + " is " + stateText( plan.state ) + "; an enter goes through " + listText( plan.stages );
   if ( plan.session )
      text += "; this session comes from " + *plan.session;
   text = paragraph( text, room ) + "\n";
   if ( plan.state != "normal" )
      text += "an enter would begin nothing now\n\n";
   const bool briefly = std::any_of( plan.interfaces.begin(), plan.interfaces.end(), isKnownBriefly );
   std::vector< Table::Column > columns = {
      { "INTERFACE" }, { "IN", right }, { "OUT", right }, { "95% IN", right }, { "95% OUT", right } };
   if ( briefly )
      columns.push_back( { "95% OF", right } );
   columns.insert( columns.end(), { { "THRESHOLD", right }, { "PROFILE" }, { "WILL BE" } } );
   Table interfaces( columns );
   for ( const Api::PlannedInterface & interface : plan.interfaces ) {
      std::vector< std::string > cells = {
         interface.name, rateText( interface.inBps ), rateText( interface.outBps ),
         rateText( interface.highInBps ), rateText( interface.highOutBps ) };
      if ( briefly )
         cells.push_back( spanText( interface.highKnownSeconds.value_or( 0 ) ) );
      cells.insert(
         cells.end(),
         { rateText( interface.thresholdBps ), profileText( interface ), actionText( interface ) } );
      interfaces.row( std::move( cells ) );
   }
   text += interfaces.empty() ? "no interfaces\n" : interfaces.text( 0, room );
   if ( plan.findings.empty() )
      return text + "\nnothing speaks against it\n";
   Table findings( { { "SEVERITY" }, { "CODE" }, { "FINDING" } } );
   for ( const Api::Finding & finding : plan.findings )
      findings.row( { finding.severity, finding.code, finding.text } );
   text += "\n" + findings.text( 0, room );
   return plan.needsForce ? text + "\nan enter takes --force and --reason\n" : text;
}

} // namespace Maintctl
