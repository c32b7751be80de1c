"""What the rules say. Blanks at the ends of lines are part of the texts."""

ARCHITECTURE = b"Variable ARCHITECTURE not valid."
UNKNOWN_DISTRIBUTION = b"Variable ARCHITECTURE not valid. Continue ..."

DISTRIBUTION = (b"The operating system distribution is not sufficient \n"
                b" to operate KOR ZIRN for production environments. \n"
                b" Please see KOR Note 2235581 for more details.")

KERNEL_SKIPPED = b"validateDistribution is a failure"
KERNEL_SUSE = (b"Kernelversion is too low and might have bugs related to XFS. \n"
               b"For more details review KOR Note: 2205917")
KERNEL_RED_HAT = (b"Kernelversion is too low and might have bugs related to XFS. \n"
                  b"For more details review KOR Note: 2292690")
KERNEL_UNKNOWN = b"Not a valid distribution."

RUNTIME_UNKNOWN = b"Problem in identifying Runtime Environment in OS Distribution."
RUNTIME_RED_HAT = (b"Runtime environment in this distribution is not ready for ZIRN 2.0.\n"
                   b"Please see KOR Note 2455582 for more details.")
RUNTIME_SUSE = (b"Runtime environment is not ready for ZIRN 2.0. \n"
                b"Please see KOR Note 2455582 for more details.")

CLOCK_SOURCE = b"The clocksource can have a significant performance impact."
CPU = b"CPU Model is not supported for productive usage"
BARE_METAL = b"This is not a virtual machine"
HYPERVISOR = b"Hypervisor is not supported"

HTT_VIRTUAL = (b"Check is not applicable when running in a VM. Please see KOR Note 1788665 and "
               b"the IAAS section of the ZIRN Hardware Directory for details.")
HTT = b"Hyperthreading is not enabled"

THP_SUSE = (b"Transparent hugepages is enabled, this can lead to a system \n"
            b"stall during memory defragmentation operation. \n"
            b"For More details: KOR Note 2205917")
THP_RED_HAT = (b"Transparent hugepages is enabled, this can lead to a system \n"
               b"stall during memory defragmentation operation. \n"
               b"For More details: KOR Note 2292690")

RATIO_VIRTUAL = (b"The core to memory ratio for analytics does not \n"
                 b"apply for Virtual environments")
RATIO_NON_PRODUCTION = (b"This configuration can be run only for \n"
                        b"non-production systems. \n"
                        b"This is not supported on production system.")
# The record's twin of the text above lacks one blank.
RATIO_NON_PRODUCTION_RECORD = (b"This configuration can be run only for \n"
                               b"non-production systems.\n"
                               b"This is not supported on production system.")
RATIO = b"The system has a non valid \ncore-memory ratio for analytics"
RATIO_E5 = (b"The core to memory ratio for analytics does not apply for \n"
            b"E5 processors. Please check Note for correct configuration")

MEMORY_VIRTUAL = (b"Memory rules for hypervisor configurations have to follow hypervisor specific "
                  b"guidelines. Please see KOR Note 1788665 and the IAAS section of the ZIRN "
                  b"Hardware Directory for details.")
MEMORY_MODULES = (b"Different memory modules are used! "
                  b"This will have impact on memory performance")
MEMORY_SPEED = b"DIMM speed too slow! This will have impact on memory performance"
MEMORY_TOTAL = b"Total memory size is not an allowed memory configuration"

NODES_SKIPPED = b"Since validate Memory is skipped, memory distribution is not applicable"
NODES_FAILED = (b"Since validateMemory failed and the memory distribution is \n"
                b"not applicable")
NODES_OUTLIER = b"nodesize is too far from average nodesize\n"
NODES = (b"TotalMemory Size is not an allowed memory configuration. \n"
         b"Also, the measured TotalMemory - TotalNodeMemory exceeds the  \n"
         b"average size of a DIMM module. Please check if all DIMMs are \n"
         b"in place and work properly. \n"
         b"If so, this comment can be ignored")

SERVER = (b" is not a certified ZIRN Server.\n"
          b" Due to new validations, this information can be outdated. \n"
          b" Please look into the KOR ZIRN PAM for more details")
