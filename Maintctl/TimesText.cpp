#include "Maintctl/TimesText.h"

#include "Api/Names.h"
#include "Api/Values.h"
#include "Maintctl/Text.h"

#include <cmath>

namespace Maintctl {

namespace {

/// What it does when it is too late.
std::string goesText( const Api::UnitTimes & times ) {
   return times.onOverrun == Api::OnOverrun::restore ? "goes back" : "goes on";
}

std::string doubtText( const Api::UnitTimes & times ) {
   return times.doubt ? "; wall time was " + *times.doubt +
                           " when the machine started, so the time for which it "
                           "was off is not counted"
                      : "";
}

} // namespace

std::string orRestoreText( const std::optional< std::string > & onOverrun ) {
   return onOverrun == Api::OnOverrun::restore ? std::string( ", or " ) + Api::OnOverrun::restore : "";
}

std::string deadlineText( const Api::UnitTimes & times ) {
   const std::string left =
      times.deadlineLeftSeconds ? ", " + spanText( std::ceil( *times.deadlineLeftSeconds ) ) + " left" : "";
   return Api::timeText( *times.deadline ) +
          ( times.overrun ? ", too late; it " + goesText( times )
                          : left + orRestoreText( times.onOverrun ) ) +
          doubtText( times );
}

std::string revertText( const Api::UnitTimes & times ) {
   return Api::timeText( *times.revertAt ) +
          ( times.revertLeftSeconds ? ", in " + spanText( std::ceil( *times.revertLeftSeconds ) ) : "" ) +
          doubtText( times );
}

std::string overrunText( const Api::Unit & unit ) {
   return unit.name + " is not under maintenance by its deadline, and " + goesText( unit.times );
}

} // namespace Maintctl
