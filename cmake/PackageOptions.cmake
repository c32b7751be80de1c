# Read by cpack once for each kind of package.
if(CPACK_GENERATOR STREQUAL "TGZ")
    # Unpacked anywhere.
    set(CPACK_PACKAGING_INSTALL_PREFIX "/")
else()
    set(CPACK_PACKAGING_INSTALL_PREFIX "/opt/vetra")
endif()

set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "dmidecode, numactl, openssh-client, net-tools")

set(CPACK_RPM_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_RPM_PACKAGE_LICENSE "see /opt/vetra/LICENSES")
# The programs are static: nothing is to be found out about them, and nothing stripped.
set(CPACK_RPM_PACKAGE_AUTOREQPROV no)
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /opt)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define __os_install_post %{nil}
%define debug_package %{nil}
%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
