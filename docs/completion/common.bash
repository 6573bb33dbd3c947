# Completion of the queue manager's programs. A program's own function has set
#   words        the subcommands of a command ("bxadm queue ", with a blank behind each word)
#   options      the options of a command, with bars between the names of one
#   after        the options that are left when this one was given
#   values       what follows an option ("bxadm queue list -m"): MANAGER, QUEUE, SECTION, FILE, FOLDER, NONE, or
#                the values that there are, with bars between them
#   positionals  the same for each of a command's own arguments

# Names are asked of bxadm, where it is there, and for two seconds at the most.
_bxm_ask() {
  command -v bxadm >/dev/null || return
  timeout 2 bxadm "$@" --json 2>/dev/null </dev/null | sed -n 's/^ *"name": "\(.*\)",*$/\1/p'
}

# The first look at the default manager's queues would make one where there is none.
_bxm_queues() {
  if [[ -n $manager ]]; then
    _bxm_ask queue list -m "$manager"
  elif [[ -n $(_bxm_ask manager list) ]]; then
    _bxm_ask queue list
  fi
}

_bxm_kind() {
  case $1 in
    MANAGER) _bxm_ask manager list ;;
    QUEUE) _bxm_queues ;;
    SECTION) sed -n 's/^[[:space:]]*\[\(.*\)[^[:space:]][[:space:]]*$/\1/p' ferry.ini 2>/dev/null ;;
    FILE) compgen -f -- "$cur" ;;
    FOLDER) compgen -d -- "$cur" ;;
    '' | NONE) ;;
    *) printf '%s\n' ${1//|/ } ;;
  esac
}

# _bxm_complete PROGRAM
_bxm_complete() {
  local cur=${COMP_WORDS[COMP_CWORD]} path="$1 " kind='' manager='' taken='' word n place=0
  local offered line=() last
  [[ $cur != = ]] || cur=''
  for ((n = 0; n < ${#COMP_WORDS[@]}; n++)); do # bash makes three words of --manager=M
    ((n != COMP_CWORD)) || last=${#line[@]}
    [[ ${COMP_WORDS[n]} == = ]] && ((n != COMP_CWORD)) || line+=("${COMP_WORDS[n]}")
  done
  for ((n = 1; n < ${#line[@]}; n++)); do
    [[ ${line[n]} != @(-m|--manager) ]] || manager=${line[n + 1]-}
  done
  for ((n = 1; n < last; n++)); do
    word=${line[n]}
    kind=${values[$path$word]-}
    taken+=" $word "
    [[ -z ${after[$word]+set} ]] || offered=${after[$word]}
    if [[ -n $kind ]]; then
      ((++n))
    elif [[ $word != -* && " ${words[$path]-} " == *" $word "* ]]; then
      path+="$word "
    elif [[ $word != -* ]]; then
      ((++place))
    fi
  done
  COMPREPLY=()
  if ((n > last)); then # the last option waits for its value
    :
  elif [[ $cur == -* || -z ${words[$path]-}${positionals[$path]-} ]]; then
    kind=''
    for word in ${offered-${options[$path]-}}; do
      [[ $taken == *" ${word%|*} "* || $taken == *" ${word#*|} "* ]] || kind+=" $word"
    done
  else
    local kinds=(${positionals[$path]-})
    kind=${words[$path]-${kinds[place]-}}
  fi
  [[ $kind != FILE && $kind != FOLDER ]] || compopt -o filenames 2>/dev/null
  while IFS= read -r word; do
    [[ $word != "$cur"* ]] || COMPREPLY+=("$word")
  done < <(_bxm_kind "$kind")
  [[ $kind != SECTION ]] || ((${#COMPREPLY[@]} != 1)) || printf -v COMPREPLY[0] %q "${COMPREPLY[0]}"
}
