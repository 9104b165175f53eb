#include "product/settings.h"

InstallSettings installSettings;
DeploymentOptions deploymentOptions;

unsigned VersionNumber(const VersionQuad& v) {
  return ((v.major * 100u + v.minor) * 100u + v.release) * 100u + v.build;
}
