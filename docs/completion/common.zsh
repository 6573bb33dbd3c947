# Names are asked of bxadm, where it is there, and for two seconds at the most.
_bxm_ask() {
  (( $+commands[bxadm] )) || return 1
  timeout 2 bxadm "$@" --json 2>/dev/null </dev/null | sed -n 's/^ *"name": "\(.*\)",*$/\1/p'
}

_bxm_MANAGER() {
  local -a names=(${(f)"$(_bxm_ask manager list)"})
  compadd -a names
}

# The first look at the default manager's queues would make one where there is none.
_bxm_QUEUE() {
  local manager=${(Q)opt_args[-m]:-${(Q)opt_args[--manager]}}
  local -a names
  if [[ -n $manager ]]; then
    names=(${(f)"$(_bxm_ask queue list -m $manager)"})
  elif [[ -n $(_bxm_ask manager list) ]]; then
    names=(${(f)"$(_bxm_ask queue list)"})
  fi
  compadd -a names
}

_bxm_SECTION() {
  [[ -r ferry.ini ]] || return 1
  local -a names=(${(f)"$(sed -n 's/^[[:space:]]*\[\(.*\)[^[:space:]][[:space:]]*$/\1/p' ferry.ini)"})
  compadd -a names
}

_bxm_FILE() { _files }
_bxm_FOLDER() { _files -/ }

