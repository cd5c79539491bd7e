// Certificates as the openssl program makes them.
#include "tests/fleet/support/certificates.h"

#include <fstream>

#include "tests/fleet/support/cluster.h"

namespace fleet_test {

void make_authority(const std::string& directory) {
  output_of({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
             "-nodes", "-days", "30", "-subj", "/CN=test authority", "-keyout",
             directory + "/ca.key", "-out", directory + "/ca.pem"});
}

void make_certificate(const std::string& directory, const std::string& name, int days,
                      const std::string& subject) {
  const std::string at = directory + "/" + name;
  output_of({"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
             "-subj", subject.empty() ? "/CN=" + name : subject, "-keyout", at + ".key", "-out",
             at + ".csr"});
  std::ofstream(at + ".ext") << "subjectAltName=DNS:localhost,IP:127.0.0.1\n"
                             << "extendedKeyUsage=serverAuth,clientAuth\n";
  output_of({"openssl", "x509", "-req", "-in", at + ".csr", "-CA", directory + "/ca.pem", "-CAkey",
             directory + "/ca.key", "-CAcreateserial", "-days", std::to_string(days), "-extfile",
             at + ".ext", "-out", at + ".pem"});
}

void revoke_certificate(const std::string& directory, const std::string& name) {
  std::ofstream(directory + "/ca.conf")
      << "[ca]\ndefault_ca=own\n[own]\ndatabase=" << directory << "/index.txt\n"
      << "default_md=sha256\ndefault_crl_days=30\n";
  std::ofstream(directory + "/index.txt", std::ios::app).flush();
  std::vector<std::string> command{"openssl",  "ca",
                                   "-config",  directory + "/ca.conf",
                                   "-keyfile", directory + "/ca.key",
                                   "-cert",    directory + "/ca.pem"};
  if (!name.empty()) {
    std::vector<std::string> revoke = command;
    revoke.insert(revoke.end(), {"-revoke", directory + "/" + name + ".pem"});
    output_of(revoke);
  }
  command.insert(command.end(), {"-gencrl", "-out", directory + "/crl.pem"});
  output_of(command);
}

}  // namespace fleet_test
