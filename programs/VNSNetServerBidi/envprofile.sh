# Read by the shell that starts the measuring server on a peer, before it starts it. The server
# finds everything beside itself, so only the place of libraries is set, for a build that brings
# some along.
vetra_directory=$(cd "$(dirname "${BASH_SOURCE:-$0}")" && pwd)
if [ -d "$vetra_directory/lib" ]; then
    LD_LIBRARY_PATH="$vetra_directory/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
    export LD_LIBRARY_PATH
fi
unset vetra_directory
