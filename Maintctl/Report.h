#pragma once

#include "Api/History.h"
#include "Maintctl/Table.h"

#include <string>
#include <vector>

/// Purpose: maintenances of the past as text for people, and for spreadsheets. All times are UTC.
namespace Maintctl {

/// One line each.
std::string historyText( const std::vector< Api::Maintenance > & maintenances, std::size_t room = endless );

/// What one would put into a ticket: who, why and when, stages, interfaces, what happened in order, and what each interface carried.
/// \param utf8  it is shown where there is more than ASCII
std::string reportText( const Api::MaintenanceRecord & record, bool utf8, std::size_t room = endless );

/// A heading and a row for each interface; times, rates and words as the agent gives them.
std::string reportCsv( const Api::MaintenanceRecord & record );

} // namespace Maintctl
