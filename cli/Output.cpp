#include "cli/Output.h"

#include <utility>

namespace cli {

int Output::nothing() {
  rendr::writeEmptyOutput(context_.out, format());
  started_ = true;
  return kStatusOk;
}

Action oneDocument(OutputAction action) {
  return [action = std::move(action)](const Match& m, const Context& c) {
    Output out(m, c);
    try {
      const int status = action(m, c, out);
      if (status != kStatusOk && !out.started()) out.nothing();
      return status;
    } catch (...) {
      if (!out.started()) out.nothing();
      throw;
    }
  };
}

}  // namespace cli
