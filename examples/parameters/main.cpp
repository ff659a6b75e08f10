// Reads parameter text as a host receives it, changes it, and writes it back.
//
//   parameters 'Name="gate", Rate=25'

#include <iostream>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparamextract.h"
#include "coreapi/qmutils/params/jparams.h"

int main(int argc, char** argv) {
  const char* text = argc > 1 ? argv[1] : "Name=\"gate\", Rate=25";

  // The short way, for one value: 0 when it is there and can be read as what is asked for.
  int rate = 0;
  if (extractInteger("Rate", text, rate) != 0) {
    std::cerr << "no Rate in: " << text << '\n';
    return 1;
  }

  // The long way: failures are thrown as pointers, and a guard owns what was caught.
  try {
    JParams params;
    params.parse(text);
    params.add("Rate", rate * 2);
    std::string changed;
    params.toText(changed);
    std::cout << changed << '\n';
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    std::cerr << error->getMessage() << '\n';
    return 1;
  }
}
