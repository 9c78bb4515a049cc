#include "Tests/Reference/Model.h"

namespace Reference {

class Model::Rules {
 public:
   Published published;
   std::vector< Decision > decisions;
};

Model::Model( const World & ) : rules_( std::make_unique< Rules >() ) {}
Model::~Model() = default;

void Model::apply( const Event & ) { rules_->decisions.clear(); }
const Published & Model::published() const { return rules_->published; }
const std::vector< Decision > & Model::decisions() const { return rules_->decisions; }

} // namespace Reference
