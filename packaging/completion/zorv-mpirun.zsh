#compdef zorv-mpirun zorv-mpirun-info
# Zsh completion of the options of zorv-mpirun and zorv-mpirun-info. The options come first.
# After the first other argument, the command line belongs to the MPI launcher and the
# program, and file names are completed.

# For each option: the long spelling, the type of its value (none for a switch), the spellings
# of manual-launch mode, and a description.
local -a launcher_options=(
# generated: options (by tools/generate-from-tables, from backend/options.def)
    --zorvhost host '-zorvhost --host -host' 'The front end'"'"'s host'
    --zorvport text '-zorvport --port -port' 'The TCP port on which the front end listens'
    --zorvsession text '-zorvsession --session -session' 'The session number'
    --zorvsessionfile file '-zorvsessionfile --sessionfile -sessionfile' 'The session file to read'
    --zorvsessioncookie text '-zorvsessioncookie --sessioncookie -sessioncookie' 'The secret of the session'
    --zorvnosessioncookie none '' 'The session has no secret'
    --zorvshareddirectory directory '-s -shareddirectory --shareddirectory' 'A directory to use in place of the home directory'
    --zorvtarball file '--tarball -tarball' 'The tarball of the installation, for hosts that cannot access the installation'
    --zorvyourname host --yourname 'The name that the front end uses for this host'
    --zorvattach process '-a -attach --attach' 'The process to which the helper attaches'
    --zorvcount text '' 'The number of processes that the helper manages'
    --zorvoffset text '' 'The number of the helper'"'"'s first process, counted over all helpers'
    --zorvexplicittarget none '' 'The target is given on the command line'
    --zorvensureoneperhost none '' 'Ensures that only one helper runs on each host'
    --zorvforked none '' 'The helper is started by fork'
    --zorvmpirun none '' 'The helper is used in place of an MPI launcher'
    --zorvmanuallaunch none '' 'Turns on manual-launch mode for the arguments after it'
    --zorvdebug none '-d -debug --debug' 'The helper prints what it does'
    --zorvverbose none '-v -verbose --verbose' 'The helper prints more of what it does'
    --zorvroot none '-r -root --root' 'The helper is the root of the tree of back-end processes'
    --zorvprogress none '-progress --progress' 'The helper reports the progress of its start'
    --zorvlog file '-log --log' 'The helper'"'"'s log file'
    --zorvclientlog file '-clientlog --clientlog' 'The helper'"'"'s client log file'
    --zorvreplay file '-p -replay --replay' 'The file that the helper replays'
    --zorvwaitfortopologyfile none '' 'The helper waits for the file that describes the job'
# end of generated
)

local -A long simple
local -a described described_simple
local name kind others other text
for name kind others text in "${launcher_options[@]}"; do
    long[$name]=$kind
    described+=("$name:$text")
    for other in ${=others}; do
        simple[$other]=$kind
        described_simple+=("$other:$text")
    done
done
described_simple+=(-{h,-help,\?}':Print a help text' '--:End the options')

# Whether the environment turns manual-launch mode on.
local manual=${ZORV_MANUAL_LAUNCH-${PELK_MANUAL_LAUNCH-${TALVORA_MANUAL_LAUNCH-off}}}
if [[ ${manual:l} == (no|off|disable|disabled|0) ]]; then
    manual=
else
    manual=yes
fi

# zorv-mpirun-info has its own options, and then a launcher's command line.
local launcher=yes
integer i=2
if [[ $service == zorv-mpirun-info ]]; then
    launcher=
    while (( i < CURRENT )) && [[ -z $launcher ]]; do
        case $words[i] in
        (--json|--watch|--codes|--help|--version) (( i++ )) ;;
        (--bundle|--host) (( i += 2 )) ;;
        (zorv-mpirun|*/zorv-mpirun) launcher=yes; (( i++ )) ;;
        (*) break ;;
        esac
    done
    if (( i > CURRENT )); then
        if [[ $words[CURRENT-1] == --host ]] { _hosts } else { _files }
        return
    fi
    if (( i == CURRENT )) && [[ -z $launcher ]]; then
        described+=('--json:Print JSON, for scripts' '--host:Also look up a host'
            '--bundle:Write an archive for a ticket' '--watch:Show a session as it runs'
            '--codes:List all findings'
            '--help:Print a help text' '--version:Print the version')
    fi
fi

# The type of the word at the cursor: an option (none), or that of an option's value.
local state=none word
for (( ; i < CURRENT; i++ )); do
    word=$words[i]
    if [[ $state != none ]]; then
        state=none
    elif [[ -n $long[(e)$word] ]]; then
        state=$long[(e)$word]
        [[ $word != --zorvmanuallaunch ]] || manual=yes
    elif [[ -n $manual && -n $simple[(e)$word] ]]; then
        state=$simple[(e)$word]
    else
        _default
        return
    fi
done

case $state in
(host) _hosts ;;
(directory) _files -/ ;;
(file) _files ;;
(process) compadd -- /proc/<->(:t) ;;
(text) _message value ;;
(none)
    if [[ $PREFIX == -* ]]; then
        [[ -z $manual ]] || described+=("${described_simple[@]}")
        _describe -o option described
    else
        _default
    fi
    ;;
esac
