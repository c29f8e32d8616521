// Version service library (filled in by the service work).
namespace qv::server {}
