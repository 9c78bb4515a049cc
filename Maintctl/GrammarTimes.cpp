#include "Api/Names.h"
#include "Maintctl/Grammar.h"

namespace Maintctl {

namespace {

/// A time that something may begin after, or "never".
CLI::Validator timeOrNever() {
   return CLI::Validator(
      []( std::string & text ) -> std::string {
         if ( text == Api::never )
            return "";
         const auto parsed = Config::Duration::parse( text );
         if ( !parsed )
            return parsed.error;
         return parsed.value->seconds() == 0 ? "must be at least 1s, or \"never\"" : "";
      },
      "" );
}

} // namespace

void Grammar::times( App * enter ) {
   CLI::Option * const deadline =
      enter
         ->add_option(
            "--deadline", times_.deadline,
            "It is to be under maintenance within this; never: no deadline any more" )
         ->type_name( "TIME" )
         ->check( timeOrNever() );
   enter
      ->add_option(
         "--on-overrun", times_.onOverrun,
         "What becomes of it if it is not: keep goes on, restore goes back" )
      ->type_name( "keep|restore" )
      ->needs( deadline )
      ->check( CLI::IsMember( { Api::OnOverrun::keep, Api::OnOverrun::restore } ).description( "" ) );
   enter
      ->add_option(
         "--revert-after", times_.revertAfter,
         "It goes back of its own accord after this, wherever it is then; never: it stays" )
      ->type_name( "TIME" )
      ->check( timeOrNever() );
}

} // namespace Maintctl
