#pragma once
// The tags' own test among those that the operator's "test" command runs.

namespace vorrim {

// Prints its title, and which check failed, on the current output. True when all is well.
[[nodiscard]] bool test_tags();

}  // namespace vorrim
