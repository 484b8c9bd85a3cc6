# Fish completion of the options of zorv-mpirun and zorv-mpirun-info. The options come first.
# After the first other argument, the command line belongs to the MPI launcher and the
# program, and file names are completed.

# Lists of the same length: all spellings of all options, and for each spelling the type of the
# value (none for a switch) and a description.
set -g __zorv_mpirun_spellings
set -g __zorv_mpirun_values
set -g __zorv_mpirun_texts

function __zorv_mpirun_option --argument-names name value simple_names text
    for spelling in $name (string split --no-empty ' ' -- $simple_names)
        set -ga __zorv_mpirun_spellings $spelling
        set -ga __zorv_mpirun_values $value
        set -ga __zorv_mpirun_texts $text
    end
end

# The arguments: the long spelling, the type of the value, the spellings of manual-launch mode,
# and the description.
# generated: options (by tools/generate-from-tables, from backend/options.def)
__zorv_mpirun_option '--zorvhost' 'host' '-zorvhost --host -host' 'The front end\'s host'
__zorv_mpirun_option '--zorvport' 'text' '-zorvport --port -port' 'The TCP port on which the front end listens'
__zorv_mpirun_option '--zorvsession' 'text' '-zorvsession --session -session' 'The session number'
__zorv_mpirun_option '--zorvsessionfile' 'file' '-zorvsessionfile --sessionfile -sessionfile' 'The session file to read'
__zorv_mpirun_option '--zorvsessioncookie' 'text' '-zorvsessioncookie --sessioncookie -sessioncookie' 'The secret of the session'
__zorv_mpirun_option '--zorvnosessioncookie' 'none' '' 'The session has no secret'
__zorv_mpirun_option '--zorvshareddirectory' 'directory' '-s -shareddirectory --shareddirectory' 'A directory to use in place of the home directory'
__zorv_mpirun_option '--zorvtarball' 'file' '--tarball -tarball' 'The tarball of the installation, for hosts that cannot access the installation'
__zorv_mpirun_option '--zorvyourname' 'host' '--yourname' 'The name that the front end uses for this host'
__zorv_mpirun_option '--zorvattach' 'process' '-a -attach --attach' 'The process to which the helper attaches'
__zorv_mpirun_option '--zorvcount' 'text' '' 'The number of processes that the helper manages'
__zorv_mpirun_option '--zorvoffset' 'text' '' 'The number of the helper\'s first process, counted over all helpers'
__zorv_mpirun_option '--zorvexplicittarget' 'none' '' 'The target is given on the command line'
__zorv_mpirun_option '--zorvensureoneperhost' 'none' '' 'Ensures that only one helper runs on each host'
__zorv_mpirun_option '--zorvforked' 'none' '' 'The helper is started by fork'
__zorv_mpirun_option '--zorvmpirun' 'none' '' 'The helper is used in place of an MPI launcher'
__zorv_mpirun_option '--zorvmanuallaunch' 'none' '' 'Turns on manual-launch mode for the arguments after it'
__zorv_mpirun_option '--zorvdebug' 'none' '-d -debug --debug' 'The helper prints what it does'
__zorv_mpirun_option '--zorvverbose' 'none' '-v -verbose --verbose' 'The helper prints more of what it does'
__zorv_mpirun_option '--zorvroot' 'none' '-r -root --root' 'The helper is the root of the tree of back-end processes'
__zorv_mpirun_option '--zorvprogress' 'none' '-progress --progress' 'The helper reports the progress of its start'
__zorv_mpirun_option '--zorvlog' 'file' '-log --log' 'The helper\'s log file'
__zorv_mpirun_option '--zorvclientlog' 'file' '-clientlog --clientlog' 'The helper\'s client log file'
__zorv_mpirun_option '--zorvreplay' 'file' '-p -replay --replay' 'The file that the helper replays'
__zorv_mpirun_option '--zorvwaitfortopologyfile' 'none' '' 'The helper waits for the file that describes the job'
# end of generated

# Prints the type of an option's value, "none" for a switch, and nothing for other words.
function __zorv_mpirun_value_of --argument-names word manual
    if test -n "$manual"; or string match -q -- '--zorv*' $word
        if set -l index (contains -i -- $word $__zorv_mpirun_spellings)
            echo $__zorv_mpirun_values[$index]
        end
    end
end

# Whether the environment turns manual-launch mode on.
function __zorv_mpirun_is_manual
    for name in {ZORV,PELK,TALVORA}_MANUAL_LAUNCH
        if set -q $name
            not contains -- (string lower -- "$$name") no off disable disabled 0
            return
        end
    end
    return 1
end

function __zorv_mpirun_offer_options --argument-names manual
    for index in (seq (count $__zorv_mpirun_spellings))
        if test -n "$manual"; or string match -q -- '--zorv*' $__zorv_mpirun_spellings[$index]
            printf '%s\t%s\n' $__zorv_mpirun_spellings[$index] $__zorv_mpirun_texts[$index]
        end
    end
    if test -n "$manual"
        printf '%s\tPrint a help text\n' -h --help '-?'
        printf -- '--\tEnd the options\n'
    end
end

# The arguments: the words of the launcher's command line before the cursor.
function __zorv_mpirun
    set -l current (commandline -ct)
    set -l manual
    if __zorv_mpirun_is_manual
        set manual yes
    end
    # The type of the word at the cursor: an option (none), or that of an option's value.
    set -l state none
    for word in $argv
        if test $state != none
            set state none
            continue
        end
        set state (__zorv_mpirun_value_of "$word" "$manual")
        if test -z "$state"
            set state file
            break
        end
        if test "$word" = --zorvmanuallaunch
            set manual yes
        end
    end
    switch $state
        case host
            __fish_print_hostnames
        case directory
            __fish_complete_directories "$current"
        case file
            __fish_complete_path "$current"
        case process
            __fish_complete_pids
        case none
            if string match -q -- '-*' "$current"
                __zorv_mpirun_offer_options "$manual"
            else
                __fish_complete_path "$current"
            end
    end
end

# zorv-mpirun-info has its own options, and then a launcher's command line.
function __zorv_mpirun_info
    set -l words $argv
    while set -q words[1]
        switch $words[1]
            case --json --watch --codes --help --version
                set -e words[1]
            case --bundle --host
                if not set -q words[2]
                    if test $words[1] = --host
                        __fish_print_hostnames
                    else
                        __fish_complete_path (commandline -ct)
                    end
                    return
                end
                set -e words[1 2]
            case zorv-mpirun '*/zorv-mpirun'
                __zorv_mpirun $words[2..]
                return
            case '*'
                break
        end
    end
    __zorv_mpirun $words
    if not set -q words[1]; and string match -q -- '-*' (commandline -ct)
        printf '%s\t%s\n' --json 'Print JSON, for scripts' --host 'Also look up a host' \
            --bundle 'Write an archive for a ticket' --watch 'Show a session as it runs' \
            --codes 'List all findings' --help 'Print a help text' --version 'Print the version'
    end
end

complete -c zorv-mpirun -f -a '(__zorv_mpirun (commandline -opc)[2..])'
complete -c zorv-mpirun-info -f -a '(__zorv_mpirun_info (commandline -opc)[2..])'
