#pragma once

#include <random>
#include <string>

namespace tolma::test {

// A small transfer file drawn from a fixed population of a few dozen businesses and persons, so
// that files meet what earlier files stored: new businesses, new states of stored ones with
// changed data, fewer persons than before, persons shared between businesses, deregistrations,
// now and then a business twice in one file or one whose address section is cut. The same
// generator state always gives the same bytes.
std::string smallTransferFile(std::mt19937& random, bool byNotification, int businesses);

}  // namespace tolma::test
