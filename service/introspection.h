// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace quorvex::service_front {

// The D-Bus introspection document of the service: data/org.quorvexvpn.Service1.xml after a
// newline. NUL-terminated.
extern const char kIntrospectionXml[];

}  // namespace quorvex::service_front
