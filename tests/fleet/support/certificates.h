// Certificates for tests: an authority, and who it vouches for.
#pragma once

#include <string>

namespace fleet_test {

// Makes DIRECTORY/ca.pem and its key.
void make_authority(const std::string& directory);
// Makes DIRECTORY/<name>.pem and DIRECTORY/<name>.key for the user of that name, good for loopback as a
// server, too, and for so many days, none when they are 0 or less; another subject makes it nobody's.
void make_certificate(const std::string& directory, const std::string& name, int days = 30,
                      const std::string& subject = "");

// Makes DIRECTORY/crl.pem, with all that were revoked; `name`, if any, is one of them from now on.
void revoke_certificate(const std::string& directory, const std::string& name = "");

}  // namespace fleet_test
