/**
 * @file TCMarshalable.h
 * The platform framework's base of records that travel between processes.
 */
#ifndef KESTREL_TCMARSHALABLE_H
#define KESTREL_TCMARSHALABLE_H

/** Base of the marshalable records; deleting one through this base releases the whole record. */
class TCMarshalable {
public:
  TCMarshalable() = default;
  /** Copies the record. */
  TCMarshalable(const TCMarshalable &) = default;
  /** Copies the record. @return this record */
  TCMarshalable &operator=(const TCMarshalable &) = default;
  virtual ~TCMarshalable() = default;
};

#endif
